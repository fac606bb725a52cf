#include "tools/database.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <strings.h>

#include <hbs_msg.h>
#include <hostbase_query.h>

#include "tools/words.h"

namespace {

// The snapshot's links have been checked by the library.
template <typename Element> std::vector<Element> list_of(const hbs_db &db, const hbs_list_head &head) {
    const auto *base = reinterpret_cast<const uint8_t *>(&db);
    const auto end = static_cast<uint32_t>(reinterpret_cast<const uint8_t *>(&head) - base);
    std::vector<Element> elements;
    for (uint32_t offset = head.next; offset != end; offset = elements.back().next)
        elements.push_back(*reinterpret_cast<const Element *>(base + offset));
    return elements;
}

// All zero means "none" in a record, so it matches nobody.
template <size_t Size> bool is_field(const uint8_t (&field)[Size], const std::array<uint8_t, Size> &wanted) {
    return wanted != std::array<uint8_t, Size>{} && memcmp(field, wanted.data(), Size) == 0;
}

bool has_address(const hbs_client &client, const ip_address &address) {
    if (address.family == HBS_FAMILY_IPV4)
        return is_field(client.ipv4, address.ipv4);
    return is_field(client.ipv6, address.ipv6) || is_field(client.ll, address.ipv6);
}

bool has_name(const hbs_client &client, const std::string &name) {
    return strcasecmp(field_text(client.host).c_str(), name.c_str()) == 0 ||
           strcasecmp(field_text(client.device_name).c_str(), name.c_str()) == 0;
}

} // namespace

database_error::database_error(int why) : std::runtime_error(hostbase_strerror(why)), result(why) {}

exit_status status_of(const database_error &error) {
    switch (error.result) {
    case HOSTBASE_NO_SEGMENT:
        return exit_not_there;
    case HOSTBASE_BUSY:
    case HOSTBASE_UNSTABLE:
        return exit_no_answer;
    }
    return exit_failed;
}

database read_database() {
    auto copy = std::make_unique<hbs_db>();
    const int result = hostbase_snapshot(copy.get());
    if (result != HOSTBASE_OK)
        throw database_error(result);
    return {list_of<hbs_client>(*copy, copy->clients),        list_of<hbs_ip_entry>(*copy, copy->ip_index),
            list_of<hbs_if_entry>(*copy, copy->if_index),     list_of<hbs_ip_entry>(*copy, copy->dhcp_index),
            list_of<hbs_rule_entry>(*copy, copy->rule_index), list_of<hbs_pri_entry>(*copy, copy->pri_index)};
}

std::vector<hbs_client> matching_clients(const database &db, const std::string &key) {
    const auto mac = parse_mac(key);
    const auto address = parse_ip(key);
    std::vector<hbs_client> found;
    std::copy_if(db.clients.begin(), db.clients.end(), std::back_inserter(found),
                 [&](const hbs_client &client) {
                     return mac       ? is_field(client.mac, *mac)
                            : address ? has_address(client, *address)
                                      : !key.empty() && has_name(client, key);
                 });
    return found;
}

const hbs_client *client_at(const database &db, uint32_t dbpos) {
    const auto found = std::find_if(db.clients.begin(), db.clients.end(),
                                    [&](const hbs_client &client) { return client.dbpos == dbpos; });
    return found == db.clients.end() ? nullptr : &*found;
}
