// What targets over texts share.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

// What does not hold ends the fuzzer.
inline void fuzz_expect(bool holds) {
    if (!holds)
        abort();
}

template <size_t Size> void fuzz_expect_ended(const char (&field)[Size]) {
    fuzz_expect(memchr(field, '\0', Size) != nullptr);
}

inline std::string fuzz_text(const uint8_t *data, size_t size) {
    return std::string(reinterpret_cast<const char *>(data), size);
}

// The parts between the marks; one more than there are marks.
inline std::vector<std::string> fuzz_parts(const std::string &text, char mark) {
    std::vector<std::string> parts(1);
    for (const char letter : text)
        if (letter == mark)
            parts.emplace_back();
        else
            parts.back() += letter;
    return parts;
}
