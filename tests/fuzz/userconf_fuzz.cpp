// The persistent user configuration.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/paths.h"
#include "fuzz_box.h"
#include "gateway/userconf.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_in_box();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FILE *file = fopen(HBS_USERCONF, "w");
    if (file == nullptr || fwrite(data, 1, size, file) != size || fclose(file) != 0)
        abort();
    char value[32];
    memset(value, 'x', sizeof(value));
    if (hbs_getPersistentUserSettings("1.3.6.1.4.1", HBS_USERCONF, value, sizeof(value)) == 1 &&
        memchr(value, '\0', sizeof(value)) == nullptr)
        abort();
    char text[16];
    memset(text, 'x', sizeof(text));
    if (hbs_userconf_address(HBS_USERCONF_LAN_ADDRESS, 200, text) == 1 &&
        memchr(text, '\0', sizeof(text)) == nullptr)
        abort();
    return 0;
}
