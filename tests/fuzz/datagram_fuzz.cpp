// One datagram of the command socket, through the real handlers.
#include "fuzz_daemon.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_start_daemon();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    fuzz_begin_with_nobody();
    (void)fuzz_send(data, size);
    (void)fuzz_send(data, size); // the client is there
    return 0;
}
