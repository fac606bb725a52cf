// Hex texts of the persistent files, into fields of every size; and back from what was encoded.
#include "base/hex.h"
#include "fuzz_text.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0)
        return 0;
    const size_t field_size = data[0] + size_t{1};
    const std::string text = fuzz_text(data + 1, size - 1);
    std::vector<char> field(field_size, '\0');
    hbs_hex_to_str(text.c_str(), field.data(), field.size());
    fuzz_expect(memchr(field.data(), '\0', field.size()) != nullptr);
    const std::string word = text.c_str();
    std::vector<char> hex(2 * word.size() + 1);
    const size_t digits = hbs_str_to_hex(word.c_str(), hex.data(), hex.size());
    std::vector<char> back(word.size() + 1, '\0');
    hbs_hex_to_str(hex.data(), back.data(), back.size());
    fuzz_expect(digits == 2 * word.size() && (word == "\x1b" || word == back.data()));
    return 0;
}
