// A line "key = value  # comment" of a Linux router's settings: the same to the daemon and to what DHCP
// servers run.
#pragma once

#include <cstddef>
#include <cstring>

// Room for one with its end and a zero; a longer one is passed over.
constexpr size_t HBS_SETTINGS_LINE_SIZE = 1024;

// Cuts the blanks at both ends off, in place; returns the new start.
inline char *hbs_without_blanks(char *text) {
    text += strspn(text, " \t");
    size_t length = strlen(text);
    while (length > 0 && strchr(" \t\r\n", text[length - 1]) != nullptr)
        text[--length] = '\0';
    return text;
}

// A "#" at the start or behind a blank begins a comment.
inline void hbs_cut_comment(char *line) {
    for (char *at = line; (at = strchr(at, '#')) != nullptr; at++)
        if (at == line || at[-1] == ' ' || at[-1] == '\t') {
            *at = '\0';
            return;
        }
}
