#include "common_message.h"

#include <cstdio>
#include <cstdlib>

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
