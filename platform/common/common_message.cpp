#include "common_message.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

common_message::~common_message() {
    if (text != first)
        free(text);
}

void common_message_format(common_message *out, const char *format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    int length = vsnprintf(out->first, sizeof out->first, format, arguments);
    out->size = length < 0 ? 0 : static_cast<size_t>(length);
    if (out->size >= sizeof out->first) {
        char *whole = static_cast<char *>(malloc(out->size + 1));
        out->cut = whole == nullptr;
        if (whole != nullptr) {
            (void)vsnprintf(whole, out->size + 1, format, again);
            out->text = whole;
        } else {
            out->size = sizeof out->first - 1;
        }
    }
    va_end(again);
}

namespace {

// What is left of a format, by the C library.
__attribute__((format(printf, 2, 0))) void add_rest(common_line *line, const char *format,
                                                    va_list arguments) {
    common_message rest;
    common_message_format(&rest, format, arguments);
    common_line_add_bytes(line, rest.text, rest.size);
    line->cut = line->cut || rest.cut;
}

__attribute__((format(printf, 2, 0))) void add_unescaped(common_line *line, const char *format,
                                                         va_list arguments) {
    for (;;) {
        const char *conversion = strchrnul(format, '%');
        common_line_add_bytes(line, format, static_cast<size_t>(conversion - format));
        if (*conversion == '\0')
            return;
        if (conversion[1] == 's') {
            const char *text = va_arg(arguments, const char *);
            text = text != nullptr ? text : "(null)"; // as the C library has it
            common_line_add_bytes(line, text, strlen(text));
        } else if (conversion[1] == 'd') {
            common_line_add_number(line, va_arg(arguments, int));
        } else if (conversion[1] == 'u') {
            const unsigned number = va_arg(arguments, unsigned);
            common_line_add_number(line, number);
        } else {
            format = conversion;
            add_rest(line, format, arguments);
            return;
        }
        format = conversion + 2;
    }
}

} // namespace

void common_line_add_message(common_line *line, const char *format, va_list arguments) {
    const size_t start = line->length;
    add_unescaped(line, format, arguments);
    common_line_escape(line, start, common_quotes::plain);
}
