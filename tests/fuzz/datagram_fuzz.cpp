// One datagram of the command socket, through the real handlers.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include <hbs_msg.h>

#include "base/state.h"
#include "daemon/dispatcher.h"
#include "events/route_mode.h"
#include "fuzz_box.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/shm.h"

static void ignore(hbs_client *) {}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_in_box();
    setenv("PATH", "/nonexistent", 1); // the programs that handlers run would only take time
    hbs_clients_init();
    hbs_lease_timers_register(ignore, ignore, ignore);
    hbs_list_mutex_init();
    hbs_shm_init();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    uint8_t buffer[HBS_MSG_MAX] = {};
    memcpy(buffer, data, std::min(size, sizeof(buffer)));
    {
        hbs_list_hold hold;
        (void)hbs_set_route_mode(0); // every input starts with an empty database ...
        hbs_db_ready = 1;            // ... that takes events
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
