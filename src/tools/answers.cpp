#include "tools/answers.h"

#include <algorithm>
#include <iterator>

namespace {

struct answer_words {
    hbs_code code;
    const char *accepted;
    const char *refused;
};

constexpr answer_words table[] = {
    {HBS_CMD_SET_ROUTE_MODE, "done", "the mode was not set"},
    {HBS_CMD_SET_STATIC_LEASE, "done",
     "refused: the device, or the holder of the address, is on another network than 0 and 8"},
    {HBS_CMD_CLR_STATIC_LEASE, "done", "refused"},
    {HBS_CMD_SET_INTERNAL_LEASE, "done", "refused"},
    {HBS_CMD_SET_TRUSTED, "done", "refused: no such client"},
    {HBS_CMD_CLR_TRUSTED, "done", "refused: no such client"},
    {HBS_CMD_SET_MACFILTER, "done", "refused"},
    {HBS_CMD_CLR_MACFILTER, "done", "refused"},
    {HBS_CMD_RESET_DEFAULTS, "the files of the remembered clients are deleted",
     "the last of the files could not be deleted, or was not there"},
    {HBS_CMD_CLR_RULE_TOD, "done", "refused: no client with this MAC"},
    {HBS_CMD_SET_RULE_TOD, "done", "refused: no client with this MAC"},
    {HBS_CMD_MOD_MACFILTER, "done", "refused"},
    {HBS_EVENT_SUBNET_MASK, "the static leases are moved to the new subnet",
     "the static leases could not be moved"},
    {HBS_CMD_SET_COMMENT_HOST, "done", "refused: no client with this address"},
};

} // namespace

answer_meaning meaning_of(hbs_code code, int32_t answer) {
    if (code == HBS_CMD_DUMP) // it has no result: that it was answered says that it was done
        return {true, "the database is written to the log"};
    const auto *words = std::find_if(std::begin(table), std::end(table),
                                     [&](const answer_words &entry) { return entry.code == code; });
    if (words == std::end(table))
        return {answer >= 0, answer >= 0 ? "done" : "refused"};
    return {answer >= 0, answer >= 0 ? words->accepted : words->refused};
}
