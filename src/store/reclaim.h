// The end of a working copy: freeing, deletion with its files, and the reclaim of a published slot when
// the client pool is exhausted. Callers hold hbs_list_mutex.
#pragma once

#include <hbs_db.h>

// Frees a working copy: timers, list link, pool, and the note of its slot. The segment is not touched:
// a client that is still published is taken out of it before.
void hbs_client_free(hbs_client *client);

// Deletes the /var/tmp files named in lease_file and lease_file6. A name that would lead out of /var/tmp
// deletes nothing.
void hbs_client_delete_files(const hbs_client *client);

// Deletes the working copy that a slot belongs to, its files and its lease-file lines. The working copy is
// looked for in the client list only; the files go also when there is none. Lowers the client counter.
void hbs_delete_client(const hbs_client *slot);

// Frees the slot of the client that has been off line longest, deleting its working copy. Clients on
// line, with a static lease or with trust bits are never taken. Returns the slot, zeroed and on no list, or
// null. Called with the semaphore held; never waits on it.
hbs_client *hbs_shm_reclaim();
