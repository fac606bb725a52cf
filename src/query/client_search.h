// Finds one published client by MAC or address, copying nothing but its record.
#pragma once

#include <cstddef>
#include <cstdint>

#include <hbs_db.h>

enum hbs_query_key {
    HBS_QUERY_BY_MAC,  // 6 bytes
    HBS_QUERY_BY_IPV4, // 4 bytes
    HBS_QUERY_BY_IPV6  // 16 bytes, the global or the link-local address
};

// The first client in list order whose field holds `bytes`; an all-zero key finds none.
// Returns HOSTBASE_OK, HOSTBASE_NOT_FOUND or a failure of hbs_query_agree.
int hbs_query_find(hbs_query_key key, const uint8_t *bytes, hbs_client *client);
