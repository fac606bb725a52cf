// One datagram of the command socket, through the real handlers, to a gateway that remembers a few devices.
#include "fuzz_daemon.h"
#include "fuzz_soundness.h"

namespace {

constexpr struct {
    const char *path, *text;
} remembered[] = {
    {HBS_CLIENT_FILE,
     " version 1\n"
     "02:aa:00:00:00:01 0 7e6e6f686f73747e 636c69656e742031 00000001 7e6e6f6b6579776f72645f6c6973747e "
     "7e6e6f6465736372697074696f6e7e 0 7e6e6f646f6d61696e5f6c6973747e\n"
     "02:aa:00:00:00:02 0 6c6170746f70 7e6e6f636f6d6d656e747e 00000001 6b6579 6465736b 1 646f6d61696e\n"},
    {HBS_WHITE_RULES, "02:aa:00:00:00:01 1 2 3 4 5 6 7\n"},
    {HBS_BLACK_RULES, "02:aa:00:00:00:02 1 2 3 4 5 6 7\n"},
    {HBS_TRUSTED_INSTANCES, "1 02:aa:00:00:00:01\n"},
    {HBS_STATIC_LEASES_BEFORE "192.168.0.1" HBS_STATIC_LEASES_AFTER, "02:aa:00:00:00:01 192.168.0.20\n"}};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_start_daemon();
    fuzz_stop_at_damage();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    fuzz_begin_with_nothing();
    for (const auto &file : remembered)
        fuzz_write_file(file.path, file.text, strlen(file.text));
    fuzz_begin_with_nobody();
    (void)fuzz_send(data, size);
    fuzz_expect_sound();
    (void)fuzz_send(data, size); // the client is there
    fuzz_expect_sound();
    return 0;
}
