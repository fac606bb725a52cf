// Field setters of a working copy. Each does nothing for a null client or an equal value, else stores
// the value and marks the change. Texts are cut to their field and always terminated.
// Callers hold hbs_list_mutex and do not hold the semaphore.
#pragma once

#include <cstdint>

#include <hbs_db.h>

void hbs_set_host(hbs_client *client, const char *host);
void hbs_set_device_name(hbs_client *client, const char *name); // logged
void hbs_set_oui(hbs_client *client, const char *oui);
void hbs_set_serial_number(hbs_client *client, const char *serial_number);
void hbs_set_product_class(hbs_client *client, const char *product_class);
void hbs_set_lease_file(hbs_client *client, const char *name);
void hbs_set_lease_file6(hbs_client *client, const char *name);

// The client's entries of the old network leave the indices first (locks); publishing makes the new ones.
void hbs_set_nwidx(hbs_client *client, uint8_t nwidx);
void hbs_set_wifi_index(hbs_client *client, uint8_t wifi_index);

// port: of the external switch, 0 = none; kept for Ethernet only. Changed also when only the port differs.
void hbs_set_adapter(hbs_client *client, uint8_t adapter_type, uint8_t port);

// ifname null = the kernel's name of the index; where it has none the name stays. hotspot follows the name.
void hbs_set_interface(hbs_client *client, uint32_t ifindex, const char *ifname);

// Addresses, network order. The entries of the old address leave the indices first (locks); a first
// IPv4 address marks no change.
void hbs_set_ipv4(hbs_client *client, const uint8_t ipv4[4]);
void hbs_set_ipv6(hbs_client *client, const uint8_t ipv6[16]);
void hbs_set_ll(hbs_client *client, const uint8_t ll[16]);

void hbs_clear_status_time(hbs_client *client);
