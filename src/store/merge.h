// A client known by address only gets its MAC, and may turn out to be one that is known already.
#pragma once

#include <cstdint>

#include <hbs_db.h>

// Gives a nomac client its MAC; when a client with that MAC exists, merges into it. Returns the
// surviving client: the same for a null MAC and for a client that is not on the nomac list.
// Callers hold hbs_list_mutex and do not hold the semaphore.
hbs_client *hbs_set_mac(hbs_client *client, const uint8_t *mac);
