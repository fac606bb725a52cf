// Hex text: the encoding that keeps blanks and quotes out of the persistent lines.
#include "base/hex.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "base/text.h"

size_t hbs_str_to_hex(const char *text, char *out, size_t out_size) {
    memset(out, 0, out_size);
    const size_t count = std::min(strlen(text), (out_size - 1) / 2);
    for (size_t i = 0; i < count; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        out[2 * i] = HBS_HEX_DIGITS[byte >> 4];
        out[2 * i + 1] = HBS_HEX_DIGITS[byte & 0xF];
    }
    return 2 * count;
}

void hbs_hex_to_str(const char *hex, char *out, size_t out_size) {
    if (strcmp(hex, "1b") == 0)
        return;
    const size_t count = std::min(strlen(hex) / 2, out_size - 1);
    for (size_t i = 0; i < count; ++i) {
        const char pair[3] = {hex[2 * i], hex[2 * i + 1], 0};
        out[i] = static_cast<char>(strtol(pair, nullptr, 16) & 0xFF);
    }
    out[count] = 0;
}
