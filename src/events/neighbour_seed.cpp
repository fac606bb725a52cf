#include "events/neighbour_seed.h"

#include <cstring>
#include <netif.h>

#include "base/paths.h"
#include "base/program.h"
#include "base/state.h"
#include "base/text.h"
#include "gateway/networks.h"
#include "store/clients.h"

namespace {

constexpr const char *PROGRAM = HBS_NDISC6;
constexpr int PREFIX_SIZE = 8;    // bytes of the network's 64-bit prefix
constexpr uint32_t FIRST_LAN = 2; // LAN number of network 0

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

// Whether the device answers for the address. Any output says so.
bool is_answered(const char *address, const char *device) {
    char answer[128] = "";
    const char *const command[] = {PROGRAM, "-qr", "1", address, device, nullptr};
    (void)hbs_program_read(command, answer, sizeof answer);
    return answer[0] != '\0';
}

// The client that was asked about, by its MAC or else by its address; null when it is gone or has another
// link-local address or network by now: the answer says nothing of that. Callers hold hbs_list_mutex.
const hbs_client *find_asked(const hbs_probe *probe) {
    const bool by_mac = !hbs_mac_is_zero(probe->mac);
    const hbs_client *client = by_mac ? hbs_find_by_mac(probe->mac) : hbs_find_by_ipv6(probe->ll);
    const bool is_same = client != nullptr && client->nwidx == probe->network &&
                         memcmp(client->ll, probe->ll, sizeof probe->ll) == 0;
    return is_same ? client : nullptr;
}

// MAC of the client by now. False when it is not there, or in bridge mode.
bool take_mac(const hbs_probe *probe, hbs_mac_text *mac) {
    const hbs_list_hold hold;
    const hbs_client *client = hbs_db_ready != 0 ? find_asked(probe) : nullptr;
    if (client != nullptr)
        *mac = hbs_mac_to_text(client->mac);
    return client != nullptr;
}

} // namespace

void hbs_probe_seed(const hbs_probe *probe, bool in_time) {
    const hbs_addr_text address = hbs_ipv6_to_text(probe->address);
    char device[NETIF_NAME_SIZE];
    hbs_mac_text mac;
    if (!in_time || NETIF_GetLanName(probe->network, device) != 0 || !is_answered(address.text, device) ||
        !take_mac(probe, &mac))
        return;
    const char *const add[] = {"ip",     "-6",  "neigh",     "add", address.text, "lladdr",
                               mac.text, "nud", "reachable", "dev", device,       nullptr};
    (void)hbs_program_run(add, -1);
}

void hbs_ipv6_probe_and_add(const hbs_client *client, const uint8_t prefix[PREFIX_SIZE]) {
    hbs_probe probe{};
    probe.kind = HBS_PROBE_SEED;
    probe.network = client->nwidx;
    memcpy(probe.mac, client->mac, sizeof probe.mac);
    memcpy(probe.ll, client->ll, sizeof probe.ll);
    derive_address(client, prefix, probe.address);
    (void)hbs_probe_post(&probe); // what cannot be asked is not answered: nothing is added
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
