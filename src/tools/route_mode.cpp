#include "tools/route_mode.h"

#include "tools/command_client.h"

namespace {

// Clears a rule of the MAC that no device has: nothing to do on a list, an error on none.
int32_t answer_of(uint8_t list, const std::string &socket_path, double seconds) {
    filter_request nothing;
    nothing.code = HBS_CMD_CLR_MACFILTER;
    nothing.list = list;
    return send_command(request_filter(nothing), socket_path, seconds);
}

} // namespace

bool is_routed(const std::string &socket_path, double seconds) {
    constexpr uint8_t no_list = 0;
    return answer_of(no_list, socket_path, seconds) < 0 &&
           answer_of(HBS_LIST_WHITE, socket_path, seconds) >= 0;
}
