// Neighbour reachability. The three entry points take hbs_list_mutex themselves and do nothing while
// hbs_db_ready is 0. mac is 6 bytes or null; family AF_INET or AF_INET6; address 4 or 16 bytes.
#pragma once

#include <cstdint>

#include <hbs_db.h>

hbs_client *hbs_handle_neigh_stale(const uint8_t *mac, int ifindex, int family, const uint8_t *address);
hbs_client *hbs_handle_neigh_reachable(const uint8_t *mac, int ifindex, int family, const uint8_t *address);
hbs_client *hbs_handle_neigh_gone(const uint8_t *mac, int ifindex, int family, const uint8_t *address);

// Inner steps, under hbs_list_mutex. Return the client, or null.
hbs_client *hbs_neigh_update(const uint8_t *mac, int ifindex, int family, const uint8_t *address);
hbs_client *hbs_handle_ipv4_neighbor(const uint8_t *mac, const uint8_t ipv4[4], int ifindex);
hbs_client *hbs_handle_ipv6_ia_neighbor(const uint8_t *mac, const uint8_t ipv6[16]);
