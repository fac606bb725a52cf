// What a device answers when it is asked for its name by NetBIOS, as the program that asks prints it.
#include <unistd.h>

#include "base/program.h"
#include "files/netbios_name.h"
#include "fuzz_box.h"
#include "fuzz_text.h"

namespace {

const uint8_t *answer;
size_t answer_size;

} // namespace

// The program is the input.
int hbs_program_run(const char *const *, int output) {
    fuzz_expect(write(output, answer, answer_size) == static_cast<ssize_t>(answer_size));
    return 0;
}

int hbs_program_read(const char *const *, char *output, int) {
    output[0] = '\0';
    return -1;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_in_box();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static constexpr uint8_t mac[6] = {0x02, 0xaa, 0, 0, 0, 0x11};
    static constexpr uint8_t ipv4[4] = {192, 168, 0, 50};
    char name[16]; // shorter than an answer may be
    memset(name, 'x', sizeof name);
    answer = data;
    answer_size = size;
    if (hbs_netbios_ask(mac, ipv4, name, sizeof name)) {
        fuzz_expect_ended(name);
        fuzz_expect(name[0] != '\0');
    }
    return 0;
}
