#include "tools/client_selection.h"

#include <algorithm>
#include <cstring>
#include <tuple>

#include "tools/client_table.h"
#include "tools/words.h"

namespace {

using comparison = bool (*)(const hbs_client &left, const hbs_client &right);

// The one without an address comes last.
auto address_key(const hbs_client &client) {
    uint32_t ipv4 = 0;
    for (uint8_t byte : client.ipv4)
        ipv4 = ipv4 << 8 | byte;
    return std::make_tuple(ipv4 == 0, ipv4, std::to_array(client.ipv6), std::to_array(client.mac));
}

std::string lower_name(const hbs_client &client) {
    std::string name = client_name(client);
    for (char &letter : name)
        letter = static_cast<char>(tolower(static_cast<unsigned char>(letter)));
    return name;
}

bool by_address(const hbs_client &left, const hbs_client &right) {
    return address_key(left) < address_key(right);
}

bool by_network(const hbs_client &left, const hbs_client &right) {
    return left.nwidx != right.nwidx ? left.nwidx < right.nwidx : by_address(left, right);
}

// Those without a name come last.
bool by_name(const hbs_client &left, const hbs_client &right) {
    const std::string one = lower_name(left), other = lower_name(right);
    return one != other ? std::tuple(one.empty(), one) < std::tuple(other.empty(), other)
                        : by_address(left, right);
}

bool by_mac(const hbs_client &left, const hbs_client &right) {
    return memcmp(left.mac, right.mac, sizeof left.mac) < 0;
}

bool by_time(const hbs_client &left, const hbs_client &right) {
    return static_cast<int32_t>(left.online_time) > static_cast<int32_t>(right.online_time);
}

struct sort_way {
    const char *key;
    comparison before;
};

constexpr sort_way ways[] = {
    {"network", by_network}, {"ip", by_address}, {"name", by_name}, {"mac", by_mac}, {"seen", by_time}};

comparison comparison_of(const std::string &key) {
    for (const sort_way &way : ways)
        if (key == way.key)
            return way.before;
    return by_network;
}

template <typename Value> bool is_among(const std::vector<Value> &wanted, const Value &value) {
    return wanted.empty() || std::find(wanted.begin(), wanted.end(), value) != wanted.end();
}

} // namespace

const std::vector<std::string> &sort_keys() {
    static const std::vector<std::string> keys = [] {
        std::vector<std::string> all;
        for (const sort_way &way : ways)
            all.emplace_back(way.key);
        return all;
    }();
    return keys;
}

bool is_wanted(const hbs_client &client, const client_selection &how) {
    const bool online = (client.flags & HBS_FLAG_ONLINE) != 0;
    const bool any_state = how.online == how.offline;
    return (any_state || how.online == online) && is_among(how.networks, uint32_t{client.nwidx}) &&
           is_among(how.adapters, adapter_word(client.adapter_type));
}

bool comes_before(const hbs_client &left, const hbs_client &right, const client_selection &how) {
    const comparison before = comparison_of(how.sort);
    return how.reverse ? before(right, left) : before(left, right);
}

std::vector<hbs_client> selected(std::vector<hbs_client> clients, const client_selection &how) {
    std::erase_if(
        clients, [&](const hbs_client &client) { return !is_wanted(client, how); });
    std::stable_sort(clients.begin(), clients.end(), [&](const hbs_client &left, const hbs_client &right) {
        return comes_before(left, right, how);
    });
    return clients;
}
