// A neighbour message of the kernel, through the real handlers.
#include "daemon/neighbour_message.h"
#include "fuzz_daemon.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_start_daemon();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    {
        const hbs_list_hold hold;
        fuzz_forget_clients();
    }
    hbs_handle_neigh_message(data, size);
    return 0;
}
