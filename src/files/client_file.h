// The persistence file of clients, /nvram/8/hostbase.txt.
#pragma once

#include <cstdio>

#include <hbs_db.h>

// Re-creates the persisted clients. 0 when the file was read, also when it holds its first line only,
// whatever version that tells, or when it is there and cannot be read (logged); -1 when it is missing, its
// first line is bad, or it holds lines of an unknown version. A version below 1 is rewritten, one above is
// left alone.
int hbs_nv_load_clients();

// Rewrites the whole file from the client list.
void hbs_nv_save_clients();

// Brings the one line of a client up to date: appended, replaced, or (no trust bits) removed.
void hbs_nv_update_client(const hbs_client *client);

// Empties the file to its version line.
void hbs_nv_forget_clients();
