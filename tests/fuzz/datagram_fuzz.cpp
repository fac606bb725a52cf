// One datagram of the command socket, through the real handlers.
#include <algorithm>
#include <cstring>

#include <hbs_msg.h>

#include "daemon/dispatcher.h"
#include "fuzz_daemon.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_start_daemon();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    uint8_t buffer[HBS_MSG_MAX] = {};
    memcpy(buffer, data, std::min(size, sizeof(buffer)));
    {
        const hbs_list_hold hold;
        fuzz_forget_clients();
    }
    hbs_command command{};
    command.buffer = buffer;
    command.sender = "fuzz";
    command.result = -1;
    for (int i = 0; i < 2; i++) { // the second time the client is there
        (void)hbs_dispatch(&command);
        hbs_dispatch_after(&command);
    }
    return 0;
}
