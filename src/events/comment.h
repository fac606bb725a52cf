// What users call a device. Callers hold hbs_list_mutex. Results: 0, also when
// nothing could be kept in files (logged), or -1 when refused.
#pragma once

#include <cstdint>

#include <hbs_db.h>

int hbs_api_set_comment_host(hbs_client *client, const char *comment, const char *host);
