#include "linux_ports.h"

#include <cstring>

#include "common_text.h"

namespace {

linux_port *port_named(linux_ports *ports, const char *name) {
    for (linux_port &port : ports->port)
        if (strcmp(port.name, name) == 0)
            return &port;
    return nullptr;
}

void preset(linux_ports *ports, const linux_conf *conf) {
    for (size_t i = 0; i < EXTSWT_PORTS; i++)
        if (ports->port[i].name[0] == '\0')
            (void)common_copy_whole(ports->port[i].name, IFNAMSIZ, conf->port[i]);
}

// A device is known again by its name. Where the kernel's tables make no sense another one may stand under
// it.
bool can_be_followed(const linux_link *link, const linux_view *view) {
    return link->index != 0 && linux_link_named(view, link->name) == link;
}

// The device without a number whose name comes first, digits counted as numbers; null when all have one.
const linux_link *first_new(linux_ports *ports, const linux_view *view, const linux_conf *conf) {
    const linux_link *first = nullptr;
    for (size_t i = 0; i < view->links; i++) {
        const linux_link *link = &view->link[i];
        if (linux_is_port(view, link, conf) && port_named(ports, link->name) == nullptr &&
            (first == nullptr || strverscmp(link->name, first->name) < 0) && can_be_followed(link, view))
            first = link;
    }
    return first;
}

// A free number, else that whose device has been gone longest, but none that the settings name; null when all
// are in use.
linux_port *place_for_new(linux_ports *ports, const linux_conf *conf) {
    linux_port *place = port_named(ports, "");
    if (place != nullptr)
        return place;
    for (size_t i = 0; i < EXTSWT_PORTS; i++) {
        linux_port *port = &ports->port[i];
        if (port->index == 0 && conf->port[i][0] == '\0' && (place == nullptr || port->seen < place->seen))
            place = port;
    }
    return place;
}

// Null when it is not there, or no port.
const linux_link *device_of(const linux_port *port, const linux_view *view, const linux_conf *conf) {
    const linux_link *link = port->name[0] != '\0' ? linux_link_named(view, port->name) : nullptr;
    return link != nullptr && linux_is_port(view, link, conf) ? link : nullptr;
}

bool is_another_carrier(const linux_port *port, const linux_link *link) {
    return port->index != link->index || port->carrier_changes != link->carrier_changes;
}

// Returns whether it was down in between. now: number of the view.
bool follow(linux_port *port, const linux_view *view, const linux_conf *conf, uint64_t now) {
    const linux_link *link = device_of(port, view, conf);
    const bool dipped = link != nullptr && port->running && link->running && is_another_carrier(port, link);
    port->index = link != nullptr ? link->index : 0;
    port->seen = link != nullptr ? now : port->seen;
    port->running = link != nullptr && link->running;
    port->carrier_changes = link != nullptr ? link->carrier_changes : 0;
    return dipped;
}

} // namespace

bool linux_is_port(const linux_view *view, const linux_link *link, const linux_conf *conf) {
    const linux_link *master = link->master != 0 ? linux_link_of(view, link->master) : nullptr;
    return master != nullptr && linux_is_lan(view, master, conf) && !linux_is_wifi(link, conf);
}

void linux_ports_update(linux_ports *ports, const linux_view *view, const linux_conf *conf,
                        linux_dips *dips) {
    preset(ports, conf);
    const uint64_t now = ++ports->updates;
    for (size_t i = 0; i < EXTSWT_PORTS; i++)
        dips->port[i] = follow(&ports->port[i], view, conf, now) || dips->port[i];
    while (const linux_link *link = first_new(ports, view, conf)) {
        linux_port *port = place_for_new(ports, conf);
        if (port == nullptr)
            return;
        (void)common_copy_whole(port->name, sizeof port->name, link->name);
        (void)follow(port, view, conf, now);
    }
}

void linux_ports_note(const linux_ports *ports, hbs_netlink_bytes message, linux_dips *dips) {
    nlmsghdr head;
    linux_link link;
    if (!linux_view_link(message, &link))
        return;
    memcpy(&head, message.data, sizeof head);
    const bool down = head.nlmsg_type == RTM_NEWLINK && !link.running;
    const unsigned number = linux_port_of(ports, link.index);
    if (number == 0 || (!down && head.nlmsg_type != RTM_DELLINK))
        return;
    // What the tables showed after the message had set out was told by then.
    const bool known = down && link.carrier_changes < ports->port[number - 1].carrier_changes;
    dips->port[number - 1] = dips->port[number - 1] || !known;
}

unsigned linux_port_of(const linux_ports *ports, int index) {
    for (unsigned i = 0; i < EXTSWT_PORTS; i++)
        if (index != 0 && ports->port[i].index == index)
            return i + 1;
    return 0;
}

void linux_ports_states(const linux_ports *ports, uint32_t states[EXTSWT_PORTS]) {
    for (size_t i = 0; i < EXTSWT_PORTS; i++)
        states[i] = ports->port[i].name[0] == '\0' || ports->port[i].running ? 1 : 0;
}
