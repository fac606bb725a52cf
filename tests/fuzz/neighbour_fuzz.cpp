// A neighbour message of the kernel, through the real handlers.
#include "daemon/neighbour_message.h"
#include "fuzz_daemon.h"
#include "fuzz_netlink.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_start_daemon();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_begin_with_nobody();
    hbs_handle_neigh_message(data, size);
    return 0;
}
