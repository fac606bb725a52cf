// Deleting one client for good: it touches the segment, the lease files and the rules.
#pragma once

#include <hbs_db.h>

// Deletes a working copy (asked for by the user, or an expired lease of an unremembered device) and
// rebuilds the whole shared database from those that remain. Caller holds hbs_list_mutex.
void hbs_remove_client(hbs_client *client);
