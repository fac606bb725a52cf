// What the end of a client touches beyond the store: the lease files, its own files, the rules.
// Callers hold hbs_list_mutex and do not hold the semaphore.
#pragma once

#include <hbs_db.h>

#include "store/client_end.h"

// Drops the lines of an ended client from the lease files, and deletes the /var/tmp files named in lease_file
// and lease_file6. A name that would lead out of /var/tmp deletes nothing; six zero bytes are the MAC of
// placeholder lines and drop none.
void hbs_client_drop_files(const hbs_client_remains *remains);

// Deletes a working copy (asked for by the user, or an expired lease of an unremembered device) and
// rebuilds the whole shared database from those that remain.
void hbs_remove_client(hbs_client *client);
