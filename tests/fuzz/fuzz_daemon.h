// The daemon's tables and handlers in this process, for targets that go through them: as after a start,
// without its threads.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <hbs_msg.h>

#include "base/state.h"
#include "daemon/dispatcher.h"
#include "events/lease_timers.h"
#include "events/route_mode.h"
#include "files/client_removal.h"
#include "fuzz_box.h"
#include "store/client_end.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/shm.h"

// Nobody cuts the power.
extern "C" int fsync(int) {
    return 0;
}

inline void fuzz_start_daemon() {
    fuzz_in_box();
    setenv("PATH", "/nonexistent", 1);                // the programs that handlers run would only take time
    if (freopen("/dev/null", "w", stdout) == nullptr) // messages of other types are printed
        exit(1);
    hbs_clients_init();
    hbs_lease_timers_register(hbs_on_dhcp_wait_expired, hbs_on_lease_expired, hbs_on_online_expired);
    hbs_client_end_register(hbs_client_drop_files);
    hbs_list_mutex_init();
    hbs_shm_init();
}

// Nobody is known any more, and events are taken. Callers hold hbs_list_mutex.
inline void fuzz_forget_clients() {
    (void)hbs_set_route_mode(0);
    hbs_db_ready = 1;
}

inline void fuzz_begin_with_nobody() {
    const hbs_list_hold hold;
    fuzz_forget_clients();
}

// One datagram as the command socket's thread takes it. Returns the answer.
inline int32_t fuzz_send(const void *message, size_t size) {
    uint8_t buffer[HBS_MSG_MAX] = {};
    memcpy(buffer, message, std::min(size, sizeof buffer));
    hbs_command command{};
    command.buffer = buffer;
    command.sender = "fuzz";
    command.result = -1;
    (void)hbs_dispatch(&command);
    hbs_dispatch_after(&command);
    return command.result;
}
template <typename Message> int32_t fuzz_send(const Message &message) {
    return fuzz_send(&message, sizeof message);
}
