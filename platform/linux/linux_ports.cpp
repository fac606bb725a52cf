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

// The device without a number whose name comes first, digits counted as numbers; null when all have one.
const linux_link *first_new(linux_ports *ports, const linux_view *view, const linux_conf *conf) {
    const linux_link *first = nullptr;
    for (size_t i = 0; i < view->links; i++) {
        const linux_link *link = &view->link[i];
        if (linux_is_port(view, link, conf) && port_named(ports, link->name) == nullptr &&
            (first == nullptr || strverscmp(link->name, first->name) < 0))
            first = link;
    }
    return first;
}

// A free number, else one whose device is gone; null when all are in use.
linux_port *place_for_new(linux_ports *ports) {
    linux_port *place = port_named(ports, "");
    for (linux_port &port : ports->port)
        if (place == nullptr && port.index == 0)
            place = &port;
    return place;
}

void follow(linux_port *port, const linux_view *view, const linux_conf *conf) {
    port->index = 0;
    port->running = false;
    for (size_t i = 0; i < view->links; i++) {
        const linux_link *link = &view->link[i];
        if (port->name[0] == '\0' || strcmp(link->name, port->name) != 0 || !linux_is_port(view, link, conf))
            continue;
        port->index = link->index;
        port->running = link->running;
    }
}

} // namespace

bool linux_is_port(const linux_view *view, const linux_link *link, const linux_conf *conf) {
    const linux_link *master = link->master != 0 ? linux_link_of(view, link->master) : nullptr;
    return master != nullptr && linux_is_lan(view, master, conf) && !linux_is_wifi(link, conf);
}

void linux_ports_update(linux_ports *ports, const linux_view *view, const linux_conf *conf) {
    preset(ports, conf);
    for (linux_port &port : ports->port)
        follow(&port, view, conf);
    while (const linux_link *link = first_new(ports, view, conf)) {
        linux_port *port = place_for_new(ports);
        if (port == nullptr)
            return;
        (void)common_copy_whole(port->name, sizeof port->name, link->name);
        follow(port, view, conf);
    }
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
