// What the gateway has the daemon do to the database as a whole. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>

// Forgets what users set, in files; clients in memory stay as they are until they are loaded again. 0, or -1
// when the last of the files was not there or could not be deleted.
int hbs_handle_reset_defaults();

// Writes the published database to the log.
void hbs_handle_dump();

// A network (rndidx, from 1) has got another address; in host order, as is the old one. Its static leases
// follow. 0, or -1 (the old file is then still there).
int hbs_handle_subnet_change(uint32_t rndidx, uint32_t old_address, uint32_t new_address,
                             uint32_t prefix_length);
