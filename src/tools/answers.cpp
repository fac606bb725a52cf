#include "tools/answers.h"

#include <algorithm>
#include <iterator>

namespace {

struct refusal {
    hbs_code code;
    const char *text;
};

constexpr refusal refusals[] = {
    {HBS_CMD_SET_ROUTE_MODE, "the mode was not set"},
    {HBS_CMD_SET_STATIC_LEASE,
     "refused: the device, or the holder of the address, is on another network than 0 and 8"},
    {HBS_CMD_SET_TRUSTED, "refused: no such client"},
    {HBS_CMD_CLR_TRUSTED, "refused: no such client"},
    {HBS_CMD_CLR_RULE_TOD, "refused: no client with this MAC"},
    {HBS_CMD_SET_RULE_TOD, "refused: no client with this MAC"},
    {HBS_EVENT_SUBNET_MASK, "the static leases could not be moved"},
    {HBS_CMD_SET_COMMENT_HOST, "refused: no client with this address"},
};

} // namespace

answer_meaning meaning_of(hbs_code code, int32_t answer) {
    if (code == HBS_CMD_DUMP) // it has no result: that it was answered says that it was done
        return {true, "the database is written to the log"};
    if (answer >= 0)
        return {true, "done"};
    const auto *found = std::find_if(std::begin(refusals), std::end(refusals),
                                     [&](const refusal &entry) { return entry.code == code; });
    return {false, found == std::end(refusals) ? "refused" : found->text};
}
