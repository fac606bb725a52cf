// The DHCPv6 server's notification file, line by line.
#include "files/dhcpv6_notice.h"
#include "fuzz_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text = fuzz_text(data, size);
    hbs_dhcpv6_notice notice{};
    char *rest = nullptr;
    for (char *line = strtok_r(text.data(), "\n", &rest); line != nullptr;
         line = strtok_r(nullptr, "\n", &rest))
        hbs_dhcpv6_notice_read(line, &notice);
    fuzz_expect_ended(notice.lease_file);
    fuzz_expect_ended(notice.host);
    fuzz_expect_ended(notice.oui);
    fuzz_expect_ended(notice.serial_number);
    fuzz_expect_ended(notice.product_class);
    return 0;
}
