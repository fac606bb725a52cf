// What an answer of the daemon means.
#include <gtest/gtest.h>

#include "tools/answers.h"

namespace answers_test {

struct meaning {
    hbs_code code;
    const char *accepted, *refused;
};

const meaning meanings[] = {
    {HBS_CMD_SET_ROUTE_MODE, "done", "the mode was not set"},
    {HBS_CMD_SET_STATIC_LEASE, "done",
     "refused: the device, or the holder of the address, is on another network than 0 and 8"},
    {HBS_CMD_CLR_STATIC_LEASE, "done", "refused"},
    {HBS_CMD_SET_INTERNAL_LEASE, "done", "refused"},
    {HBS_CMD_SET_TRUSTED, "done", "refused: no such client"},
    {HBS_CMD_CLR_TRUSTED, "done", "refused: no such client"},
    {HBS_CMD_SET_MACFILTER, "done", "refused"},
    {HBS_CMD_CLR_MACFILTER, "done", "refused"},
    {HBS_CMD_RESET_DEFAULTS, "done", "refused"},
    {HBS_CMD_CLR_RULE_TOD, "done", "refused: no client with this MAC"},
    {HBS_CMD_SET_RULE_TOD, "done", "refused: no client with this MAC"},
    {HBS_CMD_MOD_MACFILTER, "done", "refused"},
    {HBS_EVENT_SUBNET_MASK, "done", "the static leases could not be moved"},
    {HBS_CMD_SET_COMMENT_HOST, "done", "refused: no client with this address"},
};

TEST(Answers, NegativeOnesAreRefusals) {
    for (const meaning &one : meanings) {
        for (int32_t answer : {0, 1, 0x7fffffff}) {
            EXPECT_TRUE(meaning_of(one.code, answer).accepted) << one.code;
            EXPECT_EQ(meaning_of(one.code, answer).text, one.accepted) << one.code;
        }
        EXPECT_FALSE(meaning_of(one.code, -1).accepted) << one.code;
        EXPECT_EQ(meaning_of(one.code, -1).text, one.refused) << one.code;
    }
}

TEST(Answers, OfTheDumpMeanNothing) {
    EXPECT_TRUE(meaning_of(HBS_CMD_DUMP, -1).accepted);
    EXPECT_EQ(meaning_of(HBS_CMD_DUMP, -1).text, "the database is written to the log");
}

} // namespace answers_test
