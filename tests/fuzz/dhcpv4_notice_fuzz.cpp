// One line of the DHCPv4 server's notification file.
#include <cstdlib>
#include <cstring>
#include <string>

#include "files/dhcpv4_notice.h"

static void ends_inside(const char *field, size_t size) {
    if (memchr(field, '\0', size) == nullptr)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string line(reinterpret_cast<const char *>(data), size);
    hbs_dhcpv4_notice notice;
    if (hbs_dhcpv4_notice_parse(line.data(), &notice)) {
        ends_inside(notice.host, sizeof(notice.host));
        ends_inside(notice.ifname, sizeof(notice.ifname));
        ends_inside(notice.lease_file, sizeof(notice.lease_file));
        ends_inside(notice.oui, sizeof(notice.oui));
        ends_inside(notice.serial_number, sizeof(notice.serial_number));
        ends_inside(notice.product_class, sizeof(notice.product_class));
    }
    return 0;
}
