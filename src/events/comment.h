// What users call a device. Callers hold hbs_list_mutex. Results: 0, also when
// nothing could be kept in files (logged), or -1 when refused.
#pragma once

#include <cstdint>

#include <hbs_db.h>

int hbs_api_set_comment_host(hbs_client *client, const char *comment, const char *host);

// The same for the client of an address (family AF_INET or AF_INET6). Returns whether there is one.
bool hbs_handle_comment_host(int family, const uint8_t *address, const char *comment, const char *host);
