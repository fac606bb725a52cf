// A neighbour message of the kernel, through the real handlers.
#include "base/state.h"
#include "daemon/neighbour_message.h"
#include "events/route_mode.h"
#include "fuzz_box.h"
#include "store/client_timers.h"
#include "store/clients.h"
#include "store/shm.h"

static void ignore(hbs_client *) {}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_in_box();
    setenv("PATH", "/nonexistent", 1);
    if (freopen("/dev/null", "w", stdout) == nullptr) // messages of other types are printed
        return 1;
    hbs_clients_init();
    hbs_lease_timers_register(ignore, ignore, ignore);
    hbs_list_mutex_init();
    hbs_shm_init();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    {
        hbs_list_hold hold;
        (void)hbs_set_route_mode(0);
        hbs_db_ready = 1;
    }
    hbs_handle_neigh_message(data, size);
    return 0;
}
