#include "events/neighbour_seed.h"

#include <cstdio>
#include <cstring>

#include "base/program.h"
#include "base/text.h"
#include "gateway/networks.h"

namespace {

constexpr const char *NDISC6 = "/fss/gw/bin/ndisc6";
constexpr int PREFIX_SIZE = 8;    // bytes of the network's 64-bit prefix
constexpr uint32_t FIRST_LAN = 2; // network 0 is the LAN interface "l2sd0.2"

struct seed_search {
    uint32_t lan_number;
    bool any;           // an entry was read
    rnddb_params entry; // the match, else the entry read last
};

bool visit_by_lan(const rnddb_params *entry, void *context) {
    auto *search = static_cast<seed_search *>(context);
    search->any = true;
    search->entry = *entry;
    return !(entry->ipv6_enabled != 0 && entry->lan_number == search->lan_number);
}

// The address that the network's prefix and the client's interface identifier make.
void derive_address(const hbs_client *client, const uint8_t prefix[PREFIX_SIZE], uint8_t address[16]) {
    memcpy(address, prefix, PREFIX_SIZE);
    memcpy(address + PREFIX_SIZE, client->ll + PREFIX_SIZE, PREFIX_SIZE);
}

} // namespace

void hbs_ipv6_probe_and_add(const hbs_client *client, const uint8_t prefix[PREFIX_SIZE]) {
    uint8_t address[16];
    derive_address(client, prefix, address);
    const hbs_addr_text text = hbs_ipv6_to_text(address);
    char device[32];
    (void)snprintf(device, sizeof device, "l2sd0.%u", client->nwidx + FIRST_LAN);
    char answer[128] = "";
    const char *const probe[] = {NDISC6, "-qr", "1", text.text, device, nullptr};
    (void)hbs_program_read(probe, answer, sizeof answer);
    if (answer[0] == '\0')
        return;
    const hbs_mac_text mac = hbs_mac_to_text(client->mac);
    const char *const add[] = {"ip",     "-6",  "neigh",     "add", text.text, "lladdr",
                               mac.text, "nud", "reachable", "dev", device,    nullptr};
    (void)hbs_program_run(add, nullptr);
}

void hbs_seed_ipv6_neighbor(hbs_client *client) {
    if (hbs_rnd_status != 0)
        (void)RNDDB_Read(0, 1); // its result is not kept: the next look-up reads again
    seed_search search{client->nwidx + FIRST_LAN, false, {}};
    (void)hbs_rnd_walk(visit_by_lan, &search);
    if (!search.any)
        return;
    const bool has_address = !hbs_ipv6_is_zero(client->ipv6);
    if (has_address && memcmp(client->ipv6, search.entry.ipv6_prefix, PREFIX_SIZE) == 0)
        return;
    hbs_ipv6_probe_and_add(client, search.entry.ipv6_prefix);
}
