// The kernel's answers of links, addresses, routes, forwarding entries and neighbours, and what is made of
// them.
#include <cstdint>
#include <cstring>

#include "fuzz_netlink.h"
#include "linux_fdb.h"
#include "linux_lans.h"
#include "linux_neighbours.h"
#include "linux_ports.h"

void linux_log(uint32_t, const char *, ...) {}

static linux_view view;

static void take(hbs_netlink_bytes message, void *) {
    static constexpr uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    linux_fdb_entry entry = {};
    linux_view_take(&view, message);
    (void)linux_fdb_match(message, 2, mac, &entry);
    (void)linux_neighbour_match(message, mac);
}

struct context_of_messages {
    const linux_ports *ports;
    linux_dips *dips;
};

static void note(hbs_netlink_bytes message, void *context) {
    const auto *seen = static_cast<context_of_messages *>(context);
    linux_ports_note(seen->ports, message, seen->dips);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static linux_conf conf;
    static common_router_table table;
    linux_lan_numbers numbers = {};
    linux_ports ports = {};
    view = {};
    linux_conf_preset(&conf);
    (void)hbs_netlink_walk({data, size}, take, nullptr);
    linux_left_out left_out;
    (void)linux_lan_numbers_give(&view, &conf, &numbers, &left_out);
    linux_lans_table(&view, &conf, &numbers, &table);
    linux_dips dips = {};
    linux_ports_update(&ports, &view, &conf, &dips);
    context_of_messages seen = {&ports, &dips};
    (void)hbs_netlink_walk({data, size}, note, &seen);
    return 0;
}
