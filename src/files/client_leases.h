// What the lease files say of a client. Callers hold hbs_list_mutex, except where it says
// so.
#pragma once

#include <cstdint>

#include <hbs_db.h>

#include "base/probe_queue.h"

// Looks all leases of a client up and sets the source of its IPv4 address (STIP4, DYNIP4 or USRIP4). One
// without a lease is asked for its name: then the answer, or that there is none, ends the check.
void hbs_check_lease(hbs_client *client);

// The action of HBS_PROBE_NETBIOS: ends the check of the client that has the MAC by then. Takes
// hbs_list_mutex.
void hbs_probe_netbios(const hbs_probe *probe, bool in_time);

// Static lease from the static-lease files (from the files that the user configuration names) into the
// client's IPv4 address. 1 when one was applied, else 0.
int hbs_check_static_ip(hbs_client *client);
int hbs_check_find_static_ip(hbs_client *client);

// Builds clients from all dynamic-lease files (start-up, when the persistence file did not load).
void hbs_handle_dynamic_leases_from_file();

// Deletes the static leases of a client's MAC.
void hbs_lease_delete_client_static(const uint8_t mac[6]);
