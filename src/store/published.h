// What readers are told of a client, taken from the daemon's own image: no wait for the semaphore, and
// nothing that another process wrote.
#pragma once

#include <cstdint>

#include <hbs_db.h>

// The published copy that a reader finds by a client's MAC: its own, where it has one (no two are published
// under one MAC). Null for a client that is not published, and for the zero MAC. Callers hold hbs_list_mutex
// as long as they use it.
const hbs_client *hbs_published_of(const hbs_client *client);
