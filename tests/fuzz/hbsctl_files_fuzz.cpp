// What hbsctl reads of others' files and answers: the DHCP servers' leases, rule files, an access point's
// stations.
#include <sstream>

#include "fuzz_text.h"
#include "tools/server_leases.h"
#include "tools/settings_files.h"
#include "tools/station.h"
#include "tools/words.h"

namespace {

constexpr time_t now = 1900000000;
constexpr const char *mac = "02:00:00:00:00:07";

void expect_written_as_here(const std::string &mac_word) {
    const auto read = parse_mac(mac_word);
    fuzz_expect(read && mac_text(read->data()) == mac_word);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text = fuzz_text(data, size);
    for (const sighting &one : parse_server_leases(text, "leases", now)) {
        fuzz_expect(one.place == "leases" && parse_ip(one.address));
        if (one.what != sighting::ipv6_lease)
            expect_written_as_here(one.mac);
    }
    for (const filed_rule &one : parse_rule_file(text, HBS_LIST_BLACK))
        expect_written_as_here(one.mac);
    if (const auto station = parse_station(text, mac, "wlan0"))
        fuzz_expect(station_text(*station).starts_with("wlan0"));
    return 0;
}
