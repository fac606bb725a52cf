// The settings of a Linux router, to all who read them: the daemon, hbsctl and the DHCP server's hook take
// the same from the same text.
#include <algorithm>

#include "base/router_paths.h"
#include "fuzz_box.h"
#include "fuzz_text.h"
#include "hook/static_lease.h"
#include "linux_conf.h"
#include "linux_static.h"
#include "tools/router_settings.h"

void linux_log(uint32_t, const char *, ...) {}

namespace {

constexpr const char *path = "/var/tmp/fuzz.conf";
constexpr uint8_t mac[6] = {0x02, 0xaa, 0, 0, 0, 0x11};
constexpr uint8_t ipv4[4] = {192, 168, 0, 11};

// The lines of dnsmasq's hosts that the daemon writes are those that the hook finds.
void tell_hosts(const std::string &text) {
    char hosts_line[64];
    if (!linux_static_line(text.c_str(), hosts_line, sizeof hosts_line))
        return;
    fuzz_expect(std::count(hosts_line, hosts_line + strlen(hosts_line), '\n') == 1);
    fuzz_write_file(path, hosts_line, strlen(hosts_line));
    (void)hbs_hosts_have(path, mac, ipv4);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_in_box();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text = fuzz_text(data, size);
    if (text.find('\0') != std::string::npos)
        return 0; // no text: where its lines end, those who read it need not agree
    static linux_conf conf;
    linux_complaints complaints = {};
    fuzz_write_file(path, data, size);
    linux_conf_preset(&conf);
    linux_conf_parse(path, &conf, &complaints);
    const router_settings shown = parse_router_settings(text);
    fuzz_expect(shown.by_traffic == conf.presence);
    fuzz_expect(shown.access_points == conf.hostapd && shown.leases == conf.dhcp_leases);
    if (conf.wifi_settle.given)
        fuzz_expect(shown.settle == conf.wifi_settle.value);
    (void)hbs_is_static_lease(path, mac, ipv4);
    tell_hosts(text);
    return 0;
}
