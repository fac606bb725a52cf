// Hex text: the encoding that keeps blanks and quotes out of the persistent lines.
#pragma once

#include <cstddef>

// Encodes text as two lower-case hex digits a byte into `out`, which is zeroed first. Cut (at a whole
// byte) when out_size does not hold all digits and the NUL. Returns the digits written.
size_t hbs_str_to_hex(const char *text, char *out, size_t out_size);

// Decodes hex text into `out`: pairs of digits of either case, a pair that is not hex as strtol reads
// it (leading digits, else 0), an odd last digit ignored; always terminated inside out_size.
// The text "1b" leaves `out` untouched: the lone character 0x1B is never restored, which is kept.
void hbs_hex_to_str(const char *hex, char *out, size_t out_size);
