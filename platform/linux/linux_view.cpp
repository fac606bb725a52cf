#include "linux_view.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <linux/if_addr.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int read_patience_ms = 2000; // no lock is held meanwhile

// The header of a kind of message behind the netlink header. Returns whether it is all there.
template <typename Header>
bool header_of(hbs_netlink_bytes message, Header *header, hbs_netlink_bytes *rest) {
    constexpr size_t size = NLMSG_HDRLEN + NLMSG_ALIGN(sizeof(Header));
    if (message.size < size)
        return false;
    memcpy(header, message.data + NLMSG_HDRLEN, sizeof *header);
    *rest = {message.data + size, message.size - size};
    return true;
}

bool has_phy(const char *name) {
    char path[64];
    (void)snprintf(path, sizeof path, "/sys/class/net/%s/phy80211", name);
    return access(path, F_OK) == 0;
}

void take_kind(linux_link *link, hbs_netlink_bytes information) {
    hbs_netlink_bytes part[IFLA_INFO_DATA + 1] = {};
    hbs_netlink_attributes(information, part, IFLA_INFO_DATA);
    const hbs_netlink_bytes kind = part[IFLA_INFO_KIND];
    link->bridge = kind.size >= 6 && memcmp(kind.data, "bridge", 6) == 0;
    if (!link->bridge)
        return;
    hbs_netlink_bytes setting[IFLA_BR_VLAN_FILTERING + 1] = {};
    hbs_netlink_attributes(part[IFLA_INFO_DATA], setting, IFLA_BR_VLAN_FILTERING);
    const hbs_netlink_bytes vlan = setting[IFLA_BR_VLAN_FILTERING];
    link->vlan_aware = vlan.size > 0 && vlan.data[0] != 0;
}

bool has_room(linux_view *view, size_t count, size_t most) {
    view->cut = view->cut || count == most;
    return count < most;
}

void take_link(linux_view *view, hbs_netlink_bytes message) {
    linux_link link;
    if (!linux_view_link(message, &link) || !has_room(view, view->links, LINUX_LINKS))
        return;
    link.wifi = has_phy(link.name);
    view->link[view->links++] = link;
}

void take_address(linux_view *view, hbs_netlink_bytes message) {
    ifaddrmsg header;
    hbs_netlink_bytes rest = {};
    if (!header_of(message, &header, &rest))
        return;
    hbs_netlink_bytes attribute[IFA_LOCAL + 1] = {};
    hbs_netlink_attributes(rest, attribute, IFA_LOCAL);
    const bool ipv4 = header.ifa_family == AF_INET;
    const hbs_netlink_bytes bytes =
        ipv4 && attribute[IFA_LOCAL].data != nullptr ? attribute[IFA_LOCAL] : attribute[IFA_ADDRESS];
    const size_t size = ipv4 ? 4 : 16;
    if ((!ipv4 && header.ifa_family != AF_INET6) || bytes.size != size || header.ifa_prefixlen > size * 8 ||
        header.ifa_scope >= RT_SCOPE_LINK || !has_room(view, view->addresses, LINUX_ADDRESSES))
        return;
    linux_address *address = &view->address[view->addresses++];
    *address = {};
    address->link = static_cast<int>(header.ifa_index);
    address->family = header.ifa_family;
    address->length = header.ifa_prefixlen;
    memcpy(address->bytes, bytes.data, size);
}

void add_outward(linux_view *view, int index) {
    for (size_t i = 0; i < view->outward; i++)
        if (view->outward_link[i] == index)
            return;
    if (index != 0 && has_room(view, view->outward, LINUX_OUTWARD))
        view->outward_link[view->outward++] = index;
}

// A route by several ways names each of them.
void take_ways(linux_view *view, hbs_netlink_bytes ways) {
    rtnexthop way;
    while (ways.size >= sizeof way) {
        memcpy(&way, ways.data, sizeof way);
        add_outward(view, way.rtnh_ifindex);
        const size_t step = (way.rtnh_len + RTNH_ALIGNTO - 1u) & ~(RTNH_ALIGNTO - 1u);
        if (step < sizeof way || step > ways.size)
            return;
        ways = {ways.data + step, ways.size - step};
    }
}

void take_route(linux_view *view, hbs_netlink_bytes message) {
    rtmsg header;
    hbs_netlink_bytes rest = {};
    if (!header_of(message, &header, &rest) || header.rtm_dst_len != 0 || header.rtm_type != RTN_UNICAST ||
        (header.rtm_flags & RTM_F_CLONED) != 0)
        return;
    hbs_netlink_bytes attribute[RTA_MULTIPATH + 1] = {};
    hbs_netlink_attributes(rest, attribute, RTA_MULTIPATH);
    add_outward(view, static_cast<int>(linux_u32(attribute[RTA_OIF])));
    take_ways(view, attribute[RTA_MULTIPATH]);
}

void visit(hbs_netlink_bytes message, void *context) {
    linux_view_take(static_cast<linux_view *>(context), message);
}

// The requests' headers all begin with the family, and all of it zero is every one of its kind.
bool read_kind(linux_view *view, uint16_t type, size_t header_size) {
    struct {
        nlmsghdr head;
        uint8_t body[NLMSG_ALIGN(sizeof(ifinfomsg))];
    } request = {};
    static_assert(sizeof(ifinfomsg) >= sizeof(ifaddrmsg) && sizeof(ifinfomsg) >= sizeof(rtmsg));
    request.head.nlmsg_len = static_cast<uint32_t>(NLMSG_LENGTH(header_size));
    request.head.nlmsg_type = type;
    request.head.nlmsg_flags = NLM_F_DUMP;
    return linux_ask(&request.head, read_patience_ms, visit, view);
}

bool has_address(const linux_view *view, int index) {
    for (size_t i = 0; i < view->addresses; i++)
        if (view->address[i].link == index)
            return true;
    return false;
}

} // namespace

bool linux_view_link(hbs_netlink_bytes message, linux_link *link) {
    ifinfomsg header;
    hbs_netlink_bytes rest = {};
    if (!header_of(message, &header, &rest))
        return false;
    hbs_netlink_bytes attribute[IFLA_CARRIER_CHANGES + 1] = {};
    static_assert(IFLA_LINKINFO < IFLA_CARRIER_CHANGES);
    hbs_netlink_attributes(rest, attribute, IFLA_CARRIER_CHANGES);
    const hbs_netlink_bytes name = attribute[IFLA_IFNAME];
    if (name.size < 2 || name.size > IFNAMSIZ)
        return false;
    *link = {};
    link->index = header.ifi_index;
    link->master = static_cast<int>(linux_u32(attribute[IFLA_MASTER]));
    memcpy(link->name, name.data, name.size - 1);
    link->running = (header.ifi_flags & (IFF_UP | LINUX_LOWER_UP)) == (IFF_UP | LINUX_LOWER_UP);
    link->carrier_changes = linux_u32(attribute[IFLA_CARRIER_CHANGES]);
    take_kind(link, attribute[IFLA_LINKINFO]);
    return true;
}

void linux_view_take(linux_view *view, hbs_netlink_bytes message) {
    nlmsghdr head;
    if (message.size < sizeof head)
        return;
    memcpy(&head, message.data, sizeof head);
    if (head.nlmsg_type == RTM_NEWLINK)
        take_link(view, message);
    else if (head.nlmsg_type == RTM_NEWADDR)
        take_address(view, message);
    else if (head.nlmsg_type == RTM_NEWROUTE)
        take_route(view, message);
}

bool linux_view_read(linux_view *view) {
    view->links = view->addresses = view->outward = 0;
    view->cut = false;
    return read_kind(view, RTM_GETLINK, sizeof(ifinfomsg)) &&
           read_kind(view, RTM_GETADDR, sizeof(ifaddrmsg)) && read_kind(view, RTM_GETROUTE, sizeof(rtmsg));
}

bool linux_is_outward(const linux_view *view, int index, const linux_conf *conf) {
    for (size_t i = 0; i < view->outward; i++)
        if (view->outward_link[i] == index)
            return true;
    const linux_link *link = linux_link_of(view, index);
    return link != nullptr && linux_names_match(&conf->wan, link->name);
}

bool linux_is_lan(const linux_view *view, const linux_link *link, const linux_conf *conf) {
    return link->bridge && has_address(view, link->index) && !linux_is_outward(view, link->index, conf) &&
           !linux_names_match(&conf->ignore, link->name);
}

const linux_link *linux_link_of(const linux_view *view, int index) {
    for (size_t i = 0; i < view->links; i++)
        if (view->link[i].index == index)
            return &view->link[i];
    return nullptr;
}

const linux_link *linux_link_named(const linux_view *view, const char *name) {
    for (size_t i = 0; i < view->links; i++)
        if (strcmp(view->link[i].name, name) == 0)
            return &view->link[i];
    return nullptr;
}

bool linux_is_wifi(const linux_link *link, const linux_conf *conf) {
    return link->wifi || linux_names_match(&conf->wifi, link->name);
}
