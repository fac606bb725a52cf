// One line of the DHCPv4 server's notification file.
#include "files/dhcpv4_notice.h"
#include "fuzz_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string line = fuzz_text(data, size);
    hbs_dhcpv4_notice notice;
    if (hbs_dhcpv4_notice_parse(line.data(), &notice)) {
        fuzz_expect_ended(notice.host);
        fuzz_expect_ended(notice.ifname);
        fuzz_expect_ended(notice.lease_file);
        fuzz_expect_ended(notice.oui);
        fuzz_expect_ended(notice.serial_number);
        fuzz_expect_ended(notice.product_class);
    }
    return 0;
}
