#include "tools/printable.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace {

struct character {
    uint32_t code; // meaningless when not valid
    size_t bytes;
    bool valid;
};

// The first character of a non-empty text. Over-long forms, surrogates and what lies beyond Unicode
// are not valid; such a byte counts as one character.
character next_character(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t lead = byte(0);
    if (lead < 0x80)
        return {lead, 1, true};
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || text.size() < length)
        return {0, 1, false};
    uint32_t code = lead & (0xFFu >> (length + 1));
    for (size_t i = 1; i < length; i++) {
        if ((byte(i) & 0xC0) != 0x80)
            return {0, 1, false};
        code = code << 6 | (byte(i) & 0x3Fu);
    }
    constexpr uint32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool valid = code >= smallest[length] && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
    return {code, valid ? length : 1, valid};
}

struct range {
    uint32_t first, last;
};

// C1 controls, zero-width and direction marks, line and paragraph separators, byte order mark.
constexpr range deceptive[] = {{0x80, 0x9F},     {0xAD, 0xAD},     {0x061C, 0x061C}, {0x200B, 0x200F},
                               {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xE0000, 0xE0FFF}};
constexpr range combining[] = {{0x0300, 0x036F}, {0x1AB0, 0x1AFF}, {0x20D0, 0x20FF}, {0xFE00, 0xFE0F}};
// East Asian Width W and F of Unicode 14, and whatever between or behind them is not assigned there, where
// later versions put more of the kind.
constexpr range wide[] = {
    {0x1100, 0x115F},   {0x231A, 0x231B},   {0x2329, 0x232A},   {0x23E9, 0x23EC},   {0x23F0, 0x23F0},
    {0x23F3, 0x23F3},   {0x25FD, 0x25FE},   {0x2614, 0x2615},   {0x2648, 0x2653},   {0x267F, 0x267F},
    {0x2693, 0x2693},   {0x26A1, 0x26A1},   {0x26AA, 0x26AB},   {0x26BD, 0x26BE},   {0x26C4, 0x26C5},
    {0x26CE, 0x26CE},   {0x26D4, 0x26D4},   {0x26EA, 0x26EA},   {0x26F2, 0x26F3},   {0x26F5, 0x26F5},
    {0x26FA, 0x26FA},   {0x26FD, 0x26FD},   {0x2705, 0x2705},   {0x270A, 0x270B},   {0x2728, 0x2728},
    {0x274C, 0x274C},   {0x274E, 0x274E},   {0x2753, 0x2755},   {0x2757, 0x2757},   {0x2795, 0x2797},
    {0x27B0, 0x27B0},   {0x27BF, 0x27BF},   {0x2B1B, 0x2B1C},   {0x2B50, 0x2B50},   {0x2B55, 0x2B55},
    {0x2E80, 0x303E},   {0x3041, 0x3247},   {0x3250, 0x4DBF},   {0x4E00, 0xA4C6},   {0xA960, 0xA97C},
    {0xAC00, 0xD7A3},   {0xF900, 0xFAD9},   {0xFE10, 0xFE19},   {0xFE30, 0xFE6B},   {0xFF01, 0xFF60},
    {0xFFE0, 0xFFE6},   {0x16FE0, 0x1B2FB}, {0x1F004, 0x1F004}, {0x1F0CF, 0x1F0CF}, {0x1F18E, 0x1F18E},
    {0x1F191, 0x1F19A}, {0x1F200, 0x1F320}, {0x1F32D, 0x1F335}, {0x1F337, 0x1F37C}, {0x1F37E, 0x1F393},
    {0x1F3A0, 0x1F3CA}, {0x1F3CF, 0x1F3D3}, {0x1F3E0, 0x1F3F0}, {0x1F3F4, 0x1F3F4}, {0x1F3F8, 0x1F43E},
    {0x1F440, 0x1F440}, {0x1F442, 0x1F4FC}, {0x1F4FF, 0x1F53D}, {0x1F54B, 0x1F54E}, {0x1F550, 0x1F567},
    {0x1F57A, 0x1F57A}, {0x1F595, 0x1F596}, {0x1F5A4, 0x1F5A4}, {0x1F5FB, 0x1F64F}, {0x1F680, 0x1F6C5},
    {0x1F6CC, 0x1F6CC}, {0x1F6D0, 0x1F6D2}, {0x1F6D5, 0x1F6DF}, {0x1F6EB, 0x1F6EC}, {0x1F6F4, 0x1F6FF},
    {0x1F7E0, 0x1F7F0}, {0x1F90C, 0x1F93A}, {0x1F93C, 0x1F945}, {0x1F947, 0x1F9FF}, {0x1FA70, 0x1FAFF},
    {0x20000, 0x3FFFD}};

template <size_t Count> bool is_of(const range (&ranges)[Count], uint32_t code) {
    return std::any_of(
        ranges, ranges + Count, [&](const range &r) { return code >= r.first && code <= r.last; });
}

std::string escaped_byte(char byte) {
    char text[8];
    snprintf(text, sizeof text, "\\x%02x", static_cast<uint8_t>(byte));
    return text;
}

std::string escaped_code(uint32_t code) {
    char text[16];
    snprintf(text, sizeof text, "\\u{%04x}", code);
    return text;
}

std::string json_unit(uint32_t unit) {
    char text[8];
    snprintf(text, sizeof text, "\\u%04x", unit & 0xFFFF);
    return text;
}

// A code beyond the first 65536 takes two units.
std::string json_escaped(uint32_t code) {
    if (code < 0x10000)
        return json_unit(code);
    const uint32_t rest = code - 0x10000;
    return json_unit(0xD800 + (rest >> 10)) + json_unit(0xDC00 + (rest & 0x3FF));
}

std::string escaped_ascii(char byte) {
    switch (byte) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    case '\\':
        return "\\\\";
    }
    const bool control = static_cast<uint8_t>(byte) < 0x20 || byte == 0x7F;
    return control ? escaped_byte(byte) : std::string(1, byte);
}

int cells_of(uint32_t code) {
    return is_of(combining, code) ? 0 : is_of(wide, code) ? 2 : 1;
}

// What a spreadsheet would compute, with the signs of full width as well.
bool is_formula(std::string_view text) {
    constexpr std::string_view signs[] = {"=", "+", "-", "@", "＝", "＋", "－", "＠"};
    return std::any_of(std::begin(signs), std::end(signs),
                       [&](std::string_view sign) { return text.starts_with(sign); });
}

} // namespace

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const character c = next_character(text);
        if (!c.valid)
            result += escaped_byte(text[0]);
        else if (c.bytes == 1)
            result += escaped_ascii(text[0]);
        else if (is_of(deceptive, c.code))
            result += escaped_code(c.code);
        else
            result += text.substr(0, c.bytes);
        text.remove_prefix(c.bytes);
    }
    return result;
}

int display_width(std::string_view text) {
    int width = 0;
    while (!text.empty()) {
        const character c = next_character(text);
        width += cells_of(c.code);
        text.remove_prefix(c.bytes);
    }
    return width;
}

std::string cut_to_width(const std::string &text, int width) {
    if (display_width(text) <= width)
        return text;
    std::string_view rest = text;
    int used = 0;
    while (!rest.empty()) {
        const character c = next_character(rest);
        if (used + cells_of(c.code) > width - 1)
            break;
        used += cells_of(c.code);
        rest.remove_prefix(c.bytes);
    }
    return text.substr(0, text.size() - rest.size()) + (width > 0 ? "…" : "");
}

std::string without_last_character(const std::string &text) {
    size_t last = 0, end = 0;
    while (end < text.size()) {
        last = end;
        end += next_character(std::string_view(text).substr(end)).bytes;
    }
    return text.substr(0, last);
}

std::string json_printable(std::string_view document) {
    std::string result;
    while (!document.empty()) {
        const character c = next_character(document);
        const bool hidden = c.valid && (c.code == 0x7F || is_of(deceptive, c.code));
        result += hidden ? json_escaped(c.code) : std::string(document.substr(0, c.bytes));
        document.remove_prefix(c.bytes);
    }
    return result;
}

std::string csv_cell(std::string_view text) {
    const std::string shown = printable(text);
    std::string cell;
    for (size_t i = 0; i < shown.size(); i++) {
        const bool begins = i == 0 || shown[i - 1] == ';'; // which separates cells where commas are decimal
        cell += begins && is_formula(std::string_view(shown).substr(i)) ? "'" : "";
        cell += shown[i];
    }
    if (cell.find_first_of("\",;") == std::string::npos)
        return cell;
    std::string quoted = "\"";
    for (char letter : cell)
        quoted.append(letter == '"' ? 2 : 1, letter);
    return quoted + "\"";
}
