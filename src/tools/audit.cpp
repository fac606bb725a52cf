#include "tools/audit.h"

#include <algorithm>

#include "tools/words.h"

namespace {

using clients_list = std::vector<hbs_client>;
using sightings_list = std::vector<sighting>;

bool holds(const hbs_client &client, const std::string &address) {
    return address == ipv4_text(client.ipv4) || address == ipv6_text(client.ipv6) ||
           address == ipv6_text(client.ll);
}

const hbs_client *with_mac(const clients_list &clients, const std::string &mac) {
    const auto found = std::find_if(clients.begin(), clients.end(),
                                    [&](const hbs_client &client) { return mac_text(client.mac) == mac; });
    return mac.empty() || found == clients.end() ? nullptr : &*found;
}

bool anybody_holds(const clients_list &clients, const std::string &address) {
    return std::any_of(
        clients.begin(), clients.end(), [&](const hbs_client &client) { return holds(client, address); });
}

std::string addresses_of(const hbs_client &client) {
    std::vector<std::string> addresses;
    for (const std::string &address : {ipv4_text(client.ipv4), ipv6_text(client.ipv6), ipv6_text(client.ll)})
        if (!address.empty())
            addresses.push_back(address);
    return addresses.empty() ? "no address" : joined(addresses, ", ");
}

std::string said_by(const sighting &one) {
    const std::string who = one.mac.empty() ? one.address : one.address + " at " + one.mac;
    return one.what == sighting::neighbour ? "the kernel has the neighbour " + who + " on " + one.place
                                           : one.place + " has a lease of " + who;
}

void check_sighting(const clients_list &clients, const sighting &one, std::vector<difference> &found) {
    const hbs_client *client = with_mac(clients, one.mac);
    if (client != nullptr ? holds(*client, one.address)
                          : one.mac.empty() && anybody_holds(clients, one.address))
        return;
    const std::string known_to = one.what == sighting::neighbour ? "kernel" : "leases";
    const std::string rest = client == nullptr ? ", which is no client"
                                               : ", but the client's record holds " + addresses_of(*client);
    found.push_back({known_to, one.mac, one.address, said_by(one) + rest});
}

bool seen_as(const sightings_list &sightings, sighting::kind what, const std::string &mac,
             const std::string &address) {
    return std::any_of(
        sightings.begin(), sightings.end(),
        [&](const sighting &one) {
            return one.what == what && one.address == address &&
                   (one.mac.empty() || mac.empty() || one.mac == mac);
        });
}

// What a record says of the outside: which flag, of which address, and who should know of it.
struct claim {
    uint32_t flag;
    std::string address;
    sighting::kind what;
    const char *words;
    const char *missing;
};

std::vector<claim> claims_of(const hbs_client &client) {
    const std::string ipv4 = ipv4_text(client.ipv4);
    const std::string ipv6 = ipv6_text(client.ipv6);
    return {
        {HBS_FLAG_DYNIP4, ipv4, sighting::dynamic_lease, "has a dynamic lease of", "no lease file holds it"},
        {HBS_FLAG_STIP4, ipv4, sighting::static_lease, "has a static lease of", "no lease file holds it"},
        {HBS_FLAG_DYNIP6, ipv6, sighting::ipv6_lease, "has a lease of",
         "the DHCPv6 server's database does not hold it"}};
}

std::string client_label(const hbs_client &client) {
    const std::string mac = mac_text(client.mac);
    return "the client " + (mac.empty() ? "number " + std::to_string(client.client_id) : mac);
}

bool can_be_seen(const lease_knowledge &leases, sighting::kind what) {
    return what == sighting::ipv6_lease ? leases.ipv6 : what != sighting::dynamic_lease || leases.ipv4;
}

void check_leases(const sightings_list &sightings, const lease_knowledge &leases, const hbs_client &client,
                  std::vector<difference> &found) {
    const std::string mac = mac_text(client.mac);
    for (const claim &one : claims_of(client)) {
        if ((client.flags & one.flag) == 0 || one.address.empty() || !can_be_seen(leases, one.what) ||
            seen_as(sightings, one.what, mac, one.address))
            continue;
        found.push_back(
            {"clients", mac, one.address,
             client_label(client) + " " + one.words + " " + one.address + ", but " + one.missing});
    }
}

// A reachable client should have at least one of its addresses among the kernel's neighbours.
void check_reachable(const sightings_list &sightings, const hbs_client &client,
                     std::vector<difference> &found) {
    const bool seen = std::any_of(sightings.begin(), sightings.end(), [&](const sighting &one) {
        return one.what == sighting::neighbour && holds(client, one.address);
    });
    if ((client.flags & HBS_FLAG_REACH) != 0 && !seen) {
        found.push_back({"clients", mac_text(client.mac), addresses_of(client),
                         client_label(client) + " is reachable (" + addresses_of(client) +
                             "), but the kernel has no such neighbour"});
    }
}

} // namespace

std::vector<difference> compare(const clients_list &clients, sightings_list sightings,
                                const lease_knowledge &leases) {
    std::vector<difference> found;
    sightings.insert(sightings.end(), leases.leases.begin(), leases.leases.end());
    for (const sighting &one : sightings)
        check_sighting(clients, one, found);
    for (const hbs_client &client : clients) {
        check_reachable(sightings, client, found);
        check_leases(sightings, leases, client, found);
    }
    return found;
}
