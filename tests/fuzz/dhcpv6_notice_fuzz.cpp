// The DHCPv6 server's notification file, line by line.
#include <cstdlib>
#include <cstring>
#include <string>

#include "files/dhcpv6_notice.h"

static void ends_inside(const char *field, size_t size) {
    if (memchr(field, '\0', size) == nullptr)
        abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    hbs_dhcpv6_notice notice{};
    char *rest = nullptr;
    for (char *line = strtok_r(text.data(), "\n", &rest); line != nullptr;
         line = strtok_r(nullptr, "\n", &rest))
        hbs_dhcpv6_notice_read(line, &notice);
    ends_inside(notice.lease_file, sizeof(notice.lease_file));
    ends_inside(notice.host, sizeof(notice.host));
    ends_inside(notice.oui, sizeof(notice.oui));
    ends_inside(notice.serial_number, sizeof(notice.serial_number));
    ends_inside(notice.product_class, sizeof(notice.product_class));
    return 0;
}
