#include "daemon/event_steps.h"

#include <cstddef>
#include <cstring>

#include <hbs_msg.h>

#include "base/log.h"
#include "base/state.h"
#include "base/text.h"
#include "daemon/command_table.h"
#include "events/dhcp_server.h"
#include "events/dhcpv4_lease.h"
#include "events/dhcpv6.h"
#include "events/maintenance.h"
#include "events/tr69_events.h"
#include "events/wifi.h"

namespace {

void keep_client(hbs_command *command, const hbs_client *client) {
    command->has_client = client != nullptr;
    if (client != nullptr)
        command->client = *client;
}

const hbs_client *kept_client(const hbs_command *command) {
    return command->has_client ? &command->client : nullptr;
}

} // namespace

// --- networks ----------------------------------------

void hbs_steps::log_server(hbs_command *command) {
    const hbs_msg_server &message = command->datagram.server;
    HBS_LOG(HBS_INFO, "HOSTBASE: HBS_EVENT_SERVER from %s index %d, started %d", command->sender,
            static_cast<int>(message.index), static_cast<int>(message.started));
}

void hbs_steps::server(hbs_command *command) {
    const hbs_msg_server &message = command->datagram.server;
    hbs_handle_dhcp_server(message.index, message.started);
}

void hbs_steps::announce_subnet_mask(hbs_command *command) {
    HBS_LOG(HBS_INFO, "HOSTBASE: HBS_EVENT_SUBNET_MASK from %s", command->sender);
}

void hbs_steps::change_subnet(hbs_command *command) {
    const hbs_msg_subnet &message = command->datagram.subnet;
    command->result =
        hbs_handle_subnet_change(message.index, message.old_ipv4, message.new_ipv4, message.prefix_length);
}

// --- Wi-Fi ----------------------------------------

void hbs_steps::announce_wifi_assoc(hbs_command *command) {
    const hbs_msg_wifi_assoc &message = command->datagram.wifi_assoc;
    HBS_LOG(HBS_INFO, "HOSTBASE: WIFI ASSOC EVT from %s : mac %s, index %d", command->sender,
            message.mac_text, static_cast<int>(message.ssid));
}

void hbs_steps::announce_wifi_disassoc(hbs_command *command) {
    const hbs_msg_wifi_assoc &message = command->datagram.wifi_assoc;
    HBS_LOG(HBS_INFO, "HOSTBASE: WIFI DISASSOC EVT from %s : mac %s", command->sender, message.mac_text);
}

// A text that is no MAC address names no station.
void hbs_steps::wifi_assoc(hbs_command *command) {
    const hbs_msg_wifi_assoc &message = command->datagram.wifi_assoc;
    uint8_t mac[HBS_MAC_SIZE];
    if (hbs_text_to_mac(message.mac_text, mac) == HBS_MAC_SIZE)
        (void)hbs_handle_wifi_association(mac, message.ssid);
}

void hbs_steps::wifi_disassoc(hbs_command *command) {
    const hbs_msg_wifi_assoc &message = command->datagram.wifi_assoc;
    uint8_t mac[HBS_MAC_SIZE];
    if (hbs_text_to_mac(message.mac_text, mac) == HBS_MAC_SIZE)
        (void)hbs_handle_wifi_disassociation(mac);
}

void hbs_steps::announce_wifi_assoc_info(hbs_command *command) {
    HBS_LOG(HBS_INFO, "HOSTBASE: WIFI ASSOC INFO INFO UPDATE EVT from %s", command->sender);
}

void hbs_steps::wifi_assoc_info(hbs_command *command) {
    hbs_update_wifi_assoc_info(command->datagram.wifi_info.mac);
}

void hbs_steps::announce_xwifi_changed(hbs_command *) {
    HBS_LOG(HBS_INFO, "HOSTBASE: HBS XWIFI CHANGED event received");
}

void hbs_steps::xwifi_changed(hbs_command *) {
    hbs_handle_xwifi_changed();
}

// --- leases ----------------------------------------

void hbs_steps::announce_dhcpv4_lease(hbs_command *command) {
    const hbs_msg_dhcpv4 &message = command->datagram.dhcpv4;
    HBS_LOG(HBS_INFO, "HOSTBASE: DHCPV4 LEASE EVT from %s : mac %s, ip %s", command->sender,
            hbs_mac_to_text(message.mac).text, hbs_ipv4_to_text(message.ipv4).text);
}

void hbs_steps::dhcpv4_lease(hbs_command *command) {
    const hbs_msg_dhcpv4 &message = command->datagram.dhcpv4;
    const hbs_dhcpv4_lease lease = hbs_dhcpv4_lease_of(&message);
    keep_client(command, hbs_handle_dhcpv4_lease(&lease));
}

void hbs_steps::send_dhcpv4_lease(hbs_command *command) {
    if (command->has_client)
        (void)hbs_send_tr69_event(HBS_TR69_DHCPV4_LEASE, &command->client);
}

// The client's identity goes into the datagram itself, where a short one behind it finds it.
void hbs_steps::dhcpv4_info(hbs_command *command) {
    const hbs_msg_dhcpv4 &message = command->datagram.dhcpv4;
    hbs_dhcpv4_identity identity{};
    const hbs_client *client =
        hbs_handle_dhcpv4_info(message.mac, message.ipv4, static_cast<int32_t>(message.nwidx),
                               static_cast<int32_t>(message.adapter_type), &identity);
    keep_client(command, client);
    static_assert(offsetof(hbs_msg_dhcpv4, oui) + sizeof(identity) == offsetof(hbs_msg_dhcpv4, lease_file));
    if (client != nullptr)
        memcpy(command->buffer + offsetof(hbs_msg_dhcpv4, oui), &identity, sizeof(identity));
}

void hbs_steps::send_dhcpv4_info(hbs_command *command) {
    (void)hbs_send_tr69_event(HBS_TR69_DHCPV4_INFO, kept_client(command));
}

void hbs_steps::dhcpv4_release(hbs_command *command) {
    const hbs_msg_dhcpv4_release &message = command->datagram.dhcpv4_release;
    (void)hbs_handle_dhcpv4_release(message.mac, message.ipv4, static_cast<int32_t>(message.dynamic),
                                    static_cast<int32_t>(message.seconds));
}

// Announced under the lock; the kernel is asked without it.
void hbs_steps::announce_and_ask_dhcpv6_lease(hbs_command *command) {
    const hbs_msg_dhcpv6 &message = command->datagram.dhcpv6;
    {
        const hbs_list_hold hold;
        HBS_LOG(HBS_INFO, "HOSTBASE: DHCPV6 LEASE EVT from %s : address %s (%s)", command->sender,
                hbs_ipv6_to_text(message.ipv6).text, hbs_ipv6_to_text(message.ll).text);
    }
    command->neighbour = hbs_ask_dhcpv6_neighbour(message.ll, message.ipv6);
}

// The host name is cut in the datagram itself, where a short one behind it finds it cut.
void hbs_steps::dhcpv6_lease(hbs_command *command) {
    const hbs_msg_dhcpv6 &message = command->datagram.dhcpv6;
    hbs_dhcpv6_lease lease = hbs_dhcpv6_lease_of(&message);
    keep_client(command, hbs_handle_dhcpv6_lease(&lease, &command->neighbour));
    const size_t length = strlen(lease.host);
    if (length < sizeof(lease.host) - 1) // a name that fills its field need not end there
        command->buffer[offsetof(hbs_msg_dhcpv6, host) + length] = '\0';
}

void hbs_steps::send_dhcpv6_lease(hbs_command *command) {
    if (command->has_client)
        (void)hbs_send_tr69_event(HBS_TR69_DHCPV6_LEASE, &command->client);
}

void hbs_steps::announce_dhcpv6_release(hbs_command *command) {
    const hbs_msg_dhcpv6_release &message = command->datagram.dhcpv6_release;
    HBS_LOG(HBS_INFO, "HOSTBASE: DHCPV6 RELEASE EVT from %s : address %s (%s)", command->sender,
            hbs_ipv6_to_text(message.ipv6).text, hbs_ipv6_to_text(message.ll).text);
}

void hbs_steps::dhcpv6_release(hbs_command *command) {
    const hbs_msg_dhcpv6_release &message = command->datagram.dhcpv6_release;
    keep_client(command, hbs_handle_dhcpv6_release(nullptr, message.ll, message.ipv6));
}

void hbs_steps::send_dhcpv6_release(hbs_command *command) {
    (void)hbs_send_tr69_event(HBS_TR69_DHCPV6_RELEASE, kept_client(command));
}
