// What the settings of users have in common: whom they are for, and how they are kept.
#pragma once

#include <cstdint>

#include <hbs_db.h>

#include "base/text.h"

// The known client of a MAC, or a new one, which starts in network 0. Null when memory runs out, and for six
// zero bytes, which are no MAC.
hbs_client *hbs_find_or_add_named(const uint8_t mac[6]);

// Publishes the client and keeps it in the persistence file.
void hbs_publish_setting(hbs_client *client);

// An empty text leaves the field as it is.
template <size_t size> void hbs_copy_unless_empty(char (&field)[size], const char *text) {
    if (text[0] != '\0')
        hbs_copy_text(field, size, text);
}
