// One client as one line of the persistence file: nine fields separated by one blank.
#pragma once

#include <cstddef>
#include <cstdint>

#include <hbs_db.h>

// Holds every line that can be written: four texts of 255 bytes and a host name of 63, in hex, and
// the numbers.
constexpr size_t HBS_CLIENT_LINE_SIZE = 2456;

// Words that stand for an empty text, so that no field is ever written empty.
constexpr const char *HBS_NO_HOST = "~nohost~";
constexpr const char *HBS_NO_COMMENT = "~nocomment~";
constexpr const char *HBS_NO_KEYWORD_LIST = "~nokeyword_list~";
constexpr const char *HBS_NO_DESCRIPTION = "~nodescription~";
constexpr const char *HBS_NO_DOMAIN_LIST = "~nodomain_list~";

// Formats a client's line, without newline. Empty texts are written as their placeholder words.
void hbs_client_line_format(const hbs_client *client, char line[HBS_CLIENT_LINE_SIZE]);

// A line taken apart. Pointers lead into the line that was parsed; texts are still hex.
struct hbs_client_line {
    int fields; // how many of the nine were there, in order; the ones after it are not set
    uint8_t mac[HBS_MAC_SIZE];
    bool mac_valid; // all six bytes converted
    int nwidx;
    const char *host;
    const char *comment;
    uint32_t trust;
    const char *keyword_list;
    const char *description;
    int32_t mac_filter;
    const char *domain_list;
};

// Parses a line of any length, which is changed in place.
void hbs_client_line_parse(char *text, hbs_client_line *line);
