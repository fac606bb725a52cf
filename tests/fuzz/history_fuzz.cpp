// What happens to a LAN, step after step, with few devices and addresses so that they meet: commands, leases,
// neighbours, stations, timers. After each step the store is sound.
#include <cstddef>
#include <cstring>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include "daemon/neighbour_message.h"
#include "events/lease_notices.h"
#include "files/client_file.h"
#include "files/rule_files.h"
#include "fuzz_daemon.h"
#include "fuzz_soundness.h"
#include "gateway/docsis_bridge.h"

namespace {

constexpr int most_steps = 64;

// The input, byte by byte; zeros behind its end.
class script {
  public:
    script(const uint8_t *data, size_t size) : at_(data), end_(data + size) {}
    bool goes_on() const { return at_ < end_; }
    uint8_t byte() { return at_ < end_ ? *at_++ : 0; }
    unsigned below(unsigned limit) { return byte() % limit; }

    void mac(uint8_t out[6]) {
        static constexpr uint8_t first[] = {0x02, 0x02, 0x02, 0x02, 0x02, 0x02, 0x00, 0x01};
        const unsigned number = below(sizeof first);
        memset(out, 0, 6);
        out[0] = first[number];
        out[5] = number == 6 ? 0 : static_cast<uint8_t>(number + 0x10);
    }

    // Of the first network, of the second one, of none; and the gateway's own.
    void ipv4(uint8_t out[4]) {
        static constexpr uint8_t addresses[][4] = {{192, 168, 0, 20}, {192, 168, 0, 21}, {192, 168, 0, 22},
                                                   {192, 168, 0, 1},  {192, 168, 1, 20}, {10, 9, 8, 7},
                                                   {0, 0, 0, 0},      {192, 168, 0, 23}};
        memcpy(out, addresses[below(8)], 4);
    }

    void ipv6(uint8_t out[16]) {
        static constexpr uint8_t beginnings[][2] = {{0xfe, 0x80}, {0xfd, 0x00}, {0x20, 0x01}, {0, 0}};
        memset(out, 0, 16);
        memcpy(out, beginnings[below(4)], 2);
        out[15] = static_cast<uint8_t>(below(4));
    }

    void text(char *out, size_t size) {
        static const char *const words[] = {"", "laptop", "a b\nc", "~nohost~", "\xff\xfe", "%s%n", "x"};
        const char *word = words[below(7)];
        strncpy(out, word, size - 1);
        if (below(16) == 15)
            memset(out, 'y', size - below(2)); // as long as the field, sometimes without its end
    }

  private:
    const uint8_t *at_, *end_;
};

void lease4(script *from) {
    hbs_msg_dhcpv4 message{};
    message.code = from->below(4) == 0 ? HBS_EVENT_DHCPV4_INFO : HBS_EVENT_DHCPV4_LEASE;
    from->mac(message.mac);
    from->ipv4(message.ipv4);
    message.dynamic = from->below(2);
    message.seconds = from->below(3) == 0 ? 0 : 3600;
    from->text(message.host, sizeof message.host);
    strcpy(message.ifname, "l2sd0.2");
    from->text(message.oui, sizeof message.oui);
    from->text(message.serial_number, sizeof message.serial_number);
    message.nwidx = from->below(3) == 0 ? from->byte() : HBS_UNKNOWN_U32;
    message.adapter_type = from->below(3) == 0 ? from->byte() : HBS_UNKNOWN_U32;
    (void)fuzz_send(message);
}

void release4(script *from) {
    hbs_msg_dhcpv4_release message{};
    message.code = HBS_EVENT_DHCPV4_RELEASE;
    from->mac(message.mac);
    from->ipv4(message.ipv4);
    message.dynamic = from->below(2);
    (void)fuzz_send(message);
}

void lease6(script *from) {
    hbs_msg_dhcpv6 message{};
    message.code = from->below(3) == 0 ? HBS_EVENT_DHCPV6_RELEASE : HBS_EVENT_DHCPV6_LEASE;
    from->ipv6(message.ll);
    from->ipv6(message.ipv6);
    message.lease_end = from->below(2) == 0 ? 0 : 2000000000;
    from->text(message.host, sizeof message.host);
    (void)fuzz_send(message);
}

void station(script *from) {
    hbs_msg_wifi_assoc message{};
    message.code = from->below(2) == 0 ? HBS_EVENT_WIFI_ASSOC : HBS_EVENT_WIFI_DISASSOC;
    uint8_t mac[6];
    from->mac(mac);
    (void)snprintf(message.mac_text, sizeof message.mac_text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1],
                   mac[2], mac[3], mac[4], mac[5]);
    message.ssid = from->below(20);
    (void)fuzz_send(message);
}

void station_figures(script *from) {
    hbs_msg_wifi_info message{};
    message.code = HBS_EVENT_WIFI_ASSOC_INFO;
    from->mac(message.mac);
    (void)fuzz_send(message);
}

void trust(script *from) {
    hbs_msg_trusted message{};
    message.code = from->below(2) == 0 ? HBS_CMD_SET_TRUSTED : HBS_CMD_CLR_TRUSTED;
    message.action = static_cast<uint8_t>(from->below(4));
    message.selector = static_cast<uint8_t>(0x11 + from->below(4));
    from->mac(message.mac);
    from->ipv4(message.ipv4);
    from->ipv6(message.ipv6);
    from->text(message.comment, sizeof message.comment);
    (void)fuzz_send(message);
}

void static_lease(script *from) {
    hbs_msg_set_static_lease message{};
    message.code = HBS_CMD_SET_STATIC_LEASE;
    message.nwidx = static_cast<uint16_t>(from->below(10));
    message.family = from->below(4) == 0 ? HBS_FAMILY_IPV6 : HBS_FAMILY_IPV4;
    from->ipv4(message.ipv4);
    from->ipv6(message.ipv6);
    from->mac(message.mac);
    from->text(message.comment, sizeof message.comment);
    from->text(message.host, sizeof message.host);
    (void)fuzz_send(message);
}

void no_static_lease(script *from) {
    hbs_msg_clr_static_lease message{};
    message.code = HBS_CMD_CLR_STATIC_LEASE;
    message.family = HBS_FAMILY_IPV4;
    from->ipv4(message.ipv4);
    (void)fuzz_send(message);
}

void internal_lease(script *from) {
    hbs_msg_set_internal_lease message{};
    message.code = HBS_CMD_SET_INTERNAL_LEASE;
    message.family = HBS_FAMILY_IPV4;
    from->ipv4(message.ipv4);
    from->mac(message.mac);
    (void)fuzz_send(message);
}

void filter(script *from) {
    static constexpr uint8_t codes[] = {HBS_CMD_SET_MACFILTER, HBS_CMD_CLR_MACFILTER, HBS_CMD_MOD_MACFILTER,
                                        HBS_CMD_CLR_RULE_TOD, HBS_CMD_SET_RULE_TOD};
    hbs_msg_filter message{};
    message.code = codes[from->below(5)];
    message.type = static_cast<uint8_t>(from->below(4));
    from->mac(message.mac);
    message.value1 = from->byte();
    message.value2 = from->byte();
    message.value3 = from->byte();
    from->text(message.comment, sizeof message.comment);
    from->mac(message.new_mac);
    message.rule_word = from->byte();
    message.value4 = from->byte();
    from->text(message.keyword_list, sizeof message.keyword_list);
    message.filter_word = from->byte();
    (void)fuzz_send(message);
}

void comment(script *from) {
    hbs_msg_comment_host message{};
    message.code = HBS_CMD_SET_COMMENT_HOST;
    message.family = from->below(2) == 0 ? HBS_FAMILY_IPV4 : HBS_FAMILY_IPV6;
    from->ipv4(message.ipv4);
    from->ipv6(message.ipv6);
    from->text(message.comment, sizeof message.comment);
    from->text(message.host, sizeof message.host);
    (void)fuzz_send(message);
}

void gateway(script *from) {
    static constexpr uint8_t codes[] = {HBS_CMD_SET_ROUTE_MODE, HBS_CMD_RESET_DEFAULTS,
                                        HBS_EVENT_XWIFI_CHANGED, HBS_CMD_DUMP};
    const uint8_t message[] = {codes[from->below(4)], static_cast<uint8_t>(from->below(2))};
    (void)fuzz_send(message);
}

void server(script *from) {
    hbs_msg_subnet message{};
    message.code = from->below(2) == 0 ? HBS_EVENT_SERVER : HBS_EVENT_SUBNET_MASK;
    message.index = from->below(12);
    message.old_ipv4 = 0xc0a80000U + from->below(2);
    message.new_ipv4 = 0xc0a80000U + (from->below(2) << 8);
    message.prefix_length = from->below(34);
    (void)fuzz_send(message);
}

void any_datagram(script *from) {
    uint8_t message[700] = {from->byte()};
    for (unsigned i = from->below(24); i > 0; i--)
        message[1 + from->byte() * 2 % (sizeof message - 1)] = from->byte();
    (void)fuzz_send(message);
}

void neighbour(script *from) {
    static constexpr uint16_t states[] = {NUD_REACHABLE,  NUD_STALE, NUD_FAILED,
                                          NUD_INCOMPLETE, NUD_DELAY, NUD_PERMANENT};
    struct {
        nlmsghdr head;
        ndmsg neighbour;
        uint8_t attributes[64];
    } message{};
    const bool is_ipv6 = from->below(2) == 1;
    message.head.nlmsg_type = from->below(8) == 0 ? RTM_DELNEIGH : RTM_NEWNEIGH;
    message.neighbour.ndm_family = is_ipv6 ? HBS_FAMILY_IPV6 : HBS_FAMILY_IPV4;
    message.neighbour.ndm_ifindex = from->below(3);
    message.neighbour.ndm_state = states[from->below(6)];
    uint8_t *at = message.attributes;
    const auto attribute = [&at](uint16_t type, const uint8_t *bytes, uint16_t size) {
        const rtattr head = {static_cast<uint16_t>(sizeof head + size), type};
        memcpy(at, &head, sizeof head);
        memcpy(at + sizeof head, bytes, size);
        at += RTA_SPACE(size);
    };
    uint8_t address[16];
    uint8_t mac[6];
    is_ipv6 ? from->ipv6(address) : from->ipv4(address);
    from->mac(mac);
    attribute(NDA_DST, address, is_ipv6 ? 16 : 4);
    if (from->below(8) != 0)
        attribute(NDA_LLADDR, mac, sizeof mac);
    message.head.nlmsg_len = static_cast<uint32_t>(at - reinterpret_cast<uint8_t *>(&message));
    hbs_handle_neigh_message(reinterpret_cast<const uint8_t *>(&message), message.head.nlmsg_len);
}

void end_of_timer(script *from) {
    const hbs_list_hold hold;
    hbs_client *client = hbs_client_first();
    for (unsigned i = from->below(6); i > 0 && client != nullptr; i--)
        client = hbs_client_next(client);
    if (client != nullptr)
        hbs_lease_timer_expire(client, 1 + static_cast<int>(from->below(3)));
}

void notice(script *from) {
    hbs_dhcpv4_notice told{};
    char line[512];
    uint8_t mac[6];
    uint8_t ipv4[4];
    from->mac(mac);
    from->ipv4(ipv4);
    (void)snprintf(line, sizeof line,
                   "%s %02x:%02x:%02x:%02x:%02x:%02x %u.%u.%u.%u %u host l2sd0.2 a b c lease",
                   from->below(3) == 0 ? "del" : "add", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5],
                   ipv4[0], ipv4[1], ipv4[2], ipv4[3], from->byte());
    if (hbs_dhcpv4_notice_parse(line, &told))
        hbs_handle_dhcpv4_notice(&told);
}

void no_carrier(script *from) {
    const hbs_list_hold hold;
    hbs_remove_cpe_by_port(from->below(6));
}

// What a restart does: everything but what the files hold is forgotten.
void restart(script *) {
    const hbs_list_hold hold;
    fuzz_forget_clients();
    if (hbs_nv_load_clients() != 0)
        hbs_nv_save_clients();
    hbs_nv_load_rules();
}

constexpr void (*steps[])(script *) = {lease4,    release4,     lease6,          station, station_figures,
                                       trust,     static_lease, no_static_lease, filter,  internal_lease,
                                       comment,   gateway,      server,          notice,  any_datagram,
                                       neighbour, end_of_timer, no_carrier,      restart};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_start_daemon();
    fuzz_stop_at_damage();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_begin_with_nothing();
    script from(data, size);
    for (int i = 0; i < most_steps && from.goes_on(); i++) {
        steps[from.below(sizeof steps / sizeof steps[0])](&from);
        fuzz_expect_sound();
    }
    return 0;
}
