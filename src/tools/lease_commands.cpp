#include "tools/lease_commands.h"

#include "tools/arguments.h"
#include "tools/carry_out.h"
#include "tools/client_key.h"

namespace {

struct lease_arguments {
    std::string client;
    static_lease lease;
};

struct clear_arguments {
    std::string client;
};

std::vector<fact> address_fact(const look &now, const std::string &mac) {
    const std::vector<hbs_client> found = matching_clients(now.db, mac);
    if (found.empty())
        return {};
    return {{"IPv4 of " + mac, ipv4_text(found.front().ipv4)}};
}

// The leases of the MAC and of the address go when the new one comes.
auto facts_of_lease(const mac_bytes &mac, const ip_address &address) {
    return [device = mac_text(mac.data()), text = ip_text(address)](const look &now) {
        return lease_facts(now, device, text) + client_facts(now, device) + address_fact(now, device);
    };
}

void set_lease(session &run, const lease_arguments &arguments) {
    const look before = look_first(run);
    static_lease lease = arguments.lease;
    lease.mac = device_of(run, before, arguments.client);
    carry_out(run, before,
              {"static-lease set", HBS_CMD_SET_STATIC_LEASE, request_set_static_lease(lease),
               to_static_lease(before, lease), facts_of_lease(lease.mac, lease.address)});
}

std::optional<ip_address> reserved_address(const look &now, const std::string &mac) {
    for (const sighting &lease : now.files.leases)
        if (lease.mac == mac)
            return parse_ip(lease.address);
    return std::nullopt;
}

// An address as it stands, otherwise what is reserved for the MAC, or the address of the client.
ip_address address_meant(const session &run, const look &now, const std::string &key) {
    if (const auto address = parse_ip(key))
        return *address;
    const meant_client who = client_meant(run, now, key);
    auto address = reserved_address(now, who.key);
    if (!address && who.client)
        address = parse_ip(ipv4_text(who.client->ipv4));
    if (!address)
        throw nothing_to_send(run, who.unknown.value_or("the client '" + key + "' has no IPv4 address"),
                              "an address");
    return *address;
}

void clear_lease(session &run, const clear_arguments &arguments) {
    const look before = look_first(run);
    const ip_address address = address_meant(run, before, arguments.client);
    const std::vector<hbs_client> holders = matching_clients(before.db, ip_text(address));
    const mac_bytes mac = holders.empty() ? mac_bytes{} : std::to_array(holders.front().mac);
    carry_out(run, before,
              {"static-lease clear", HBS_CMD_CLR_STATIC_LEASE, request_clear_static_lease(address),
               to_clearing_lease(before, address), facts_of_lease(mac, address)});
}

void set_internal(session &run, const lease_arguments &arguments) {
    const look before = look_first(run);
    const mac_bytes mac = device_of(run, before, arguments.client);
    const ip_address &address = arguments.lease.address;
    carry_out(run, before,
              {"internal-lease set", HBS_CMD_SET_INTERNAL_LEASE, request_set_internal_lease(mac, address),
               to_fixed_address(before, mac, address),
               [device = mac_text(mac.data()), text = ip_text(address)](const look &now) {
                   return lease_facts(now, device, text);
               }});
}

void add_device_and_address(CLI::App *command, lease_arguments &arguments) {
    add_client(command, arguments.client);
    add_ip(command, "address", arguments.lease.address, "The address it is to have");
}

void add_static_leases(CLI::App *group, session &run) {
    add_command<lease_arguments>(
        group, "set", "Give a device a fixed address",
        [](CLI::App *command, lease_arguments &arguments) {
            add_device_and_address(command, arguments);
            command->add_option("--network", arguments.lease.network, "LAN network, 0 or 8")
                ->capture_default_str();
            command->add_option("--comment", arguments.lease.comment, "Comment to keep with the client");
            command->add_option("--host", arguments.lease.host, "Host name");
        },
        [&run](const lease_arguments &arguments) { set_lease(run, arguments); });
    add_command<clear_arguments>(
        group, "clear", "Take a fixed address away",
        [](CLI::App *command, clear_arguments &arguments) { add_client(command, arguments.client); },
        [&run](const clear_arguments &arguments) { clear_lease(run, arguments); });
}

void add_internal_leases(CLI::App *group, session &run) {
    add_command<lease_arguments>(
        group, "set", "Reserve an address in network 0 without making a client", add_device_and_address,
        [&run](const lease_arguments &arguments) { set_internal(run, arguments); });
}

} // namespace

void add_lease_commands(CLI::App *app, session &run) {
    add_group(
        app, "static-lease", "Give a device a fixed address, or take it away",
        [&run](CLI::App *group) { add_static_leases(group, run); });
    add_group(app, "internal-lease", "Fixed addresses of the gateway's own devices",
              [&run](CLI::App *group) { add_internal_leases(group, run); });
}
