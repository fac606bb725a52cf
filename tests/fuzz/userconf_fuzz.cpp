// The persistent user configuration.
#include "base/paths.h"
#include "fuzz_box.h"
#include "fuzz_text.h"
#include "gateway/userconf.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_in_box();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_write_file(HBS_USERCONF, data, size);
    char value[32];
    memset(value, 'x', sizeof(value));
    if (hbs_getPersistentUserSettings("1.3.6.1.4.1", HBS_USERCONF, value, sizeof(value)) == 1)
        fuzz_expect_ended(value);
    char text[16];
    memset(text, 'x', sizeof(text));
    if (hbs_userconf_address(HBS_USERCONF_LAN_ADDRESS, 200, text) == 1)
        fuzz_expect_ended(text);
    return 0;
}
