// The birth of a client.
#pragma once

#include <cstdint>

#include <hbs_db.h>

// Creates a working copy; mac null = a client known by address only (nomac list). Not yet published. When all
// working copies are in use another client ends for it (hbs_client_make_room), so nobody may hold on to one
// across this call. Null when all of them are protected or on line. Callers hold hbs_list_mutex and do not
// hold the semaphore.
hbs_client *hbs_add(const uint8_t *mac);

// The client with a MAC, or a new one; *is_new [out] tells which. Null for no MAC, and when there is no place
// for another.
hbs_client *hbs_find_or_add(const uint8_t *mac, bool *is_new);
