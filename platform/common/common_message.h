// A log message made of its format and arguments, whatever its length.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "common_text.h"

// Short ones need no memory of their own; of a long one that memory runs out for the beginning is there.
struct common_message {
    char *text = first;
    size_t size = 0;
    bool cut = false;
    char first[1024]; // a text with its NUL

    common_message() { first[0] = '\0'; }
    ~common_message();
    common_message(const common_message &) = delete;
    common_message &operator=(const common_message &) = delete;
};

void common_message_format(common_message *out, const char *format, va_list arguments)
    __attribute__((format(printf, 2, 0)));

// Adds a message to a line, escaped as common_line_add_escaped does it without quotes. Texts and decimal
// numbers, of which nearly all messages are made, go straight into the line.
void common_line_add_message(common_line *line, const char *format, va_list arguments)
    __attribute__((format(printf, 2, 0)));
