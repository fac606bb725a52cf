#include "tools/event_commands.h"

#include <ctime>

#include "base/paths.h"
#include "tools/arguments.h"
#include "tools/carry_out.h"
#include "tools/client_key.h"

namespace {

constexpr uint32_t most_ssids = 16; // no device becomes a client on another one
constexpr uint32_t router_entries = 8;
constexpr uint32_t last_network = 15;

struct dhcpv4_arguments {
    std::string client;
    dhcpv4_lease lease;
    bool is_static = false;
};

struct dhcpv6_arguments {
    std::string client; // or its link-local address
    dhcpv6_lease lease;
    uint32_t seconds = 0;
};

struct server_arguments {
    uint32_t index = 0;
    uint32_t started = 0;
};

struct wifi_arguments {
    std::string client;
    uint32_t ssid = 0;
};

struct subnet_arguments {
    uint32_t index = 0;
    ipv4_bytes before = {}, after = {};
    uint32_t prefix_length = 24;
};

struct release6_arguments {
    std::string client;
    ipv6_bytes ipv6 = {};
};

const word_choices adapter_choices = {{"ethernet", HBS_ADAPTER_ETHERNET},
                                      {"usb", HBS_ADAPTER_USB},
                                      {"moca", HBS_ADAPTER_MOCA},
                                      {"wifi", HBS_ADAPTER_WIFI},
                                      {"unknown", HBS_UNKNOWN_U32}};

template <typename Lease> void add_identity(CLI::App *command, Lease &lease) {
    command->add_option("--host", lease.host, "Host name that the device gave");
    command->add_option("--oui", lease.oui, "Manufacturer OUI of the device");
    command->add_option("--serial", lease.serial_number, "Serial number of the device");
    command->add_option("--class", lease.product_class, "Product class of the device");
    command->add_option("--lease-file", lease.lease_file,
                        "File under " HBS_SCRATCH_DIR " that goes with the client");
}

objection to_lease(const dhcpv4_lease &lease) {
    const bool network_known = lease.network != HBS_UNKNOWN_U32;
    return first_of({to_device(lease.mac), to_host_address(lease.ipv4),
                     network_known ? to_number("network", lease.network, 0, last_network) : std::nullopt});
}

objection to_lease6(const ipv6_bytes &ll, const ipv6_bytes &address) {
    return first_of({to_link_local(ll), to_leased_address(address)});
}

objection to_subnet(const subnet_arguments &arguments) {
    return first_of({to_number("router entry", arguments.index, 1, router_entries),
                     to_host_address(arguments.before), to_host_address(arguments.after)});
}

// The daemon is told of a moment in 32 bits.
uint32_t end_after(uint32_t seconds) {
    const int64_t end = int64_t{time(nullptr)} + seconds;
    if (end > UINT32_MAX)
        throw request_error("--seconds " + std::to_string(seconds) +
                            ": the lease would end later than can be told, in 2106 or after");
    return static_cast<uint32_t>(end);
}

void tell_subnet(session &run, const subnet_arguments &arguments) {
    const auto all_leases = [](const look &now) {
        std::vector<fact> facts;
        for (const sighting &one : now.files.leases)
            facts.push_back({"static lease " + one.address + " for " + one.mac, "yes"});
        return facts;
    };
    carry_out(run, look_first(run),
              {"subnet", HBS_EVENT_SUBNET_MASK,
               event_subnet(arguments.index, arguments.before, arguments.after, arguments.prefix_length),
               to_subnet(arguments), all_leases});
}

void add_lease_head(CLI::App *command, dhcpv4_arguments &arguments) {
    add_client(command, arguments.client);
    add_ipv4(command, "address", arguments.lease.ipv4, "Its address");
    arguments.lease.seconds = 3600;
    command->add_option("--seconds", arguments.lease.seconds, "How long the lease lasts")
        ->capture_default_str();
    command->add_flag("--static", arguments.is_static, "A static lease, not a dynamic one");
}

void add_lease(CLI::App *command, dhcpv4_arguments &arguments) {
    add_lease_head(command, arguments);
    add_identity(command, arguments.lease);
    command->add_option("--ifname", arguments.lease.ifname, "Interface that it was seen on");
    command->add_option("--network", arguments.lease.network, "LAN network, from 0 (default: found out)");
    add_choice(command, "--adapter", arguments.lease.adapter, adapter_choices,
               "Adapter (default: found out)");
}

void add_dhcpv4_events(CLI::App *event, session &run) {
    const auto lease = [&run](const char *name, hbs_code code) {
        return [&run, name, code](const dhcpv4_arguments &arguments) {
            dhcpv4_lease message = arguments.lease;
            message.mac = device_meant(run, arguments.client);
            message.code = code;
            message.dynamic = !arguments.is_static;
            tell_event(run, name, code, event_dhcpv4_lease(message), to_lease(message));
        };
    };
    add_command<dhcpv4_arguments>(event, "dhcpv4-lease", "A device got an IPv4 lease", add_lease,
                                  lease("dhcpv4-lease", HBS_EVENT_DHCPV4_LEASE));
    add_command<dhcpv4_arguments>(event, "dhcpv4-info", "A device with an IPv4 lease asked for information",
                                  add_lease, lease("dhcpv4-info", HBS_EVENT_DHCPV4_INFO));
    add_command<dhcpv4_arguments>(
        event, "dhcpv4-release", "A device gave its IPv4 lease back", add_lease_head,
        [&run](const dhcpv4_arguments &arguments) {
            dhcpv4_lease head = arguments.lease;
            head.mac = device_meant(run, arguments.client);
            tell_event(run, "dhcpv4-release", HBS_EVENT_DHCPV4_RELEASE,
                       event_dhcpv4_release(head.mac, head.ipv4, !arguments.is_static, head.seconds),
                       to_lease(head));
        });
}

void add_dhcpv6_events(CLI::App *event, session &run) {
    add_command<dhcpv6_arguments>(
        event, "dhcpv6-lease", "A device got an IPv6 lease (a static one, when no end is given)",
        [](CLI::App *command, dhcpv6_arguments &arguments) {
            add_client(command, arguments.client, "client",
                       "Its link-local address, or a client that has one");
            add_ipv6(command, "address", arguments.lease.ipv6, "The address that it got");
            CLI::Option *end = command->add_option("--lease-end", arguments.lease.lease_end,
                                                   "When the lease ends, in seconds since 1970");
            command->add_option("--seconds", arguments.seconds, "How long the lease lasts from now on")
                ->excludes(end);
            add_identity(command, arguments.lease);
        },
        [&run](dhcpv6_arguments &arguments) {
            arguments.lease.ll = link_local_meant(run, arguments.client);
            if (arguments.seconds != 0)
                arguments.lease.lease_end = end_after(arguments.seconds);
            tell_event(run, "dhcpv6-lease", HBS_EVENT_DHCPV6_LEASE, event_dhcpv6_lease(arguments.lease),
                       to_lease6(arguments.lease.ll, arguments.lease.ipv6));
        });
    add_command<release6_arguments>(
        event, "dhcpv6-release", "A device gave its IPv6 lease back",
        [](CLI::App *command, release6_arguments &arguments) {
            add_client(command, arguments.client, "client",
                       "Its link-local address, or a client that has one");
            add_ipv6(command, "address", arguments.ipv6, "The address that it gave back");
        },
        [&run](const release6_arguments &arguments) {
            const ipv6_bytes ll = link_local_meant(run, arguments.client);
            tell_event(run, "dhcpv6-release", HBS_EVENT_DHCPV6_RELEASE,
                       event_dhcpv6_release(ll, arguments.ipv6), to_lease6(ll, arguments.ipv6));
        });
}

void add_association(CLI::App *event, session &run, const char *name, const char *help, hbs_code code) {
    add_command<wifi_arguments>(
        event, name, help,
        [](CLI::App *command, wifi_arguments &arguments) {
            add_client(command, arguments.client);
            command->add_option("ssid", arguments.ssid, "Number of the SSID, from 1")->required();
        },
        [&run, name, code](const wifi_arguments &arguments) {
            const mac_bytes mac = device_meant(run, arguments.client);
            tell_event(run, name, code, event_wifi_assoc(code, mac, arguments.ssid),
                       first_of({to_device(mac), to_number("SSID", arguments.ssid, 1, most_ssids)}));
        });
}

void add_wifi_events(CLI::App *event, session &run) {
    add_association(event, run, "wifi-assoc", "A device joined a Wi-Fi network", HBS_EVENT_WIFI_ASSOC);
    add_association(event, run, "wifi-disassoc", "A device left a Wi-Fi network", HBS_EVENT_WIFI_DISASSOC);
    add_command<std::string>(
        event, "wifi-info", "The link figures of a device changed",
        [](CLI::App *command, std::string &client) { add_client(command, client); },
        [&run](const std::string &client) {
            const mac_bytes mac = device_meant(run, client);
            tell_event(run, "wifi-info", HBS_EVENT_WIFI_ASSOC_INFO, event_wifi_info(mac), to_device(mac));
        });
    add_plain(event, "xwifi-changed", "The set of extra Wi-Fi interfaces changed", [&run] {
        tell_event(run, "xwifi-changed", HBS_EVENT_XWIFI_CHANGED, request_plain(HBS_EVENT_XWIFI_CHANGED));
    });
}

void add_network_events(CLI::App *event, session &run) {
    add_command<server_arguments>(
        event, "server", "The DHCP server of a network started or stopped",
        [](CLI::App *command, server_arguments &arguments) {
            command->add_option("index", arguments.index, "Router entry of the network, from 1")->required();
            add_choice(command, "state", arguments.started, {{"started", 1}, {"stopped", 0}}, "What it did");
        },
        [&run](const server_arguments &arguments) {
            tell_event(run, "server", HBS_EVENT_SERVER, event_server(arguments.index, arguments.started != 0),
                       to_number("router entry", arguments.index, 1, router_entries));
        });
    add_command<subnet_arguments>(
        event, "subnet", "The subnet of a network changed (this event is answered)",
        [](CLI::App *command, subnet_arguments &arguments) {
            command->add_option("index", arguments.index, "Router entry of the network, from 1")->required();
            add_ipv4(command, "old", arguments.before, "LAN address of the gateway until now");
            add_ipv4(command, "new", arguments.after, "Its new LAN address");
            command->add_option("--prefix", arguments.prefix_length, "Prefix length")
                ->check(CLI::Range(0, 32))
                ->capture_default_str();
        },
        [&run](const subnet_arguments &arguments) { tell_subnet(run, arguments); });
}

} // namespace

void add_event_commands(CLI::App *app, session &run) {
    add_group(
        app, "event", "Tell the daemon of an event, as the servers and drivers do",
        [&run](CLI::App *event) {
            add_dhcpv4_events(event, run);
            add_dhcpv6_events(event, run);
            add_wifi_events(event, run);
            add_network_events(event, run);
        });
}
