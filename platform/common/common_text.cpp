// Parsing of the texts in the file of values, and growing lines of text for log and journal.
#include "common_text.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

int digit_value(char digit) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return -1;
}

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

// Makes room for `more` bytes and the cut mark.
bool make_room(common_line *line, size_t more) {
    size_t capacity = (line->length + more + sizeof common_line_cut_mark) * 2;
    void *memory = realloc(line->text == line->first ? nullptr : line->text, capacity);
    if (memory == nullptr) {
        line->cut = true;
        return false;
    }
    char *text = static_cast<char *>(memory);
    if (line->text == line->first)
        memcpy(text, line->first, line->length);
    line->text = text;
    line->capacity = capacity;
    return true;
}

// What stands for itself, but for the double quote.
struct plain_bytes {
    bool is[256] = {};
    constexpr plain_bytes() {
        for (int byte = ' '; byte <= '~'; byte++)
            is[byte] = byte != '\\';
    }
};
constexpr plain_bytes plain;

bool is_plain(char byte, common_quotes quotes) {
    return plain.is[static_cast<unsigned char>(byte)] && (byte != '"' || quotes == common_quotes::plain);
}

// Whether each byte of a word is plain, by the borrow or carry into its highest bit that another one makes.
bool are_plain(uint64_t word, common_quotes quotes) {
    constexpr uint64_t ones = 0x0101010101010101, highest = ones << 7;
    const auto below = [](uint64_t bytes, uint64_t limit) { return (bytes - ones * limit) & ~bytes; };
    uint64_t odd =
        word | (word + ones) | below(word, ' ') | below(word ^ ones * '\\', 1); // above '~', and so on
    if (quotes == common_quotes::escaped)
        odd |= below(word ^ ones * '"', 1);
    return (odd & highest) == 0;
}

uint64_t word_at(const char *text) {
    uint64_t word = 0;
    memcpy(&word, text, sizeof word);
    return word;
}

// How many bytes stand for themselves before one that does not: most texts are plain from end to end. The
// last word overlaps the one before it.
size_t plain_length(const char *text, size_t length, common_quotes quotes) {
    constexpr size_t size = sizeof(uint64_t);
    size_t i = 0;
    while (i + size <= length && are_plain(word_at(text + i), quotes))
        i += size;
    if (i > 0 && i + size > length && are_plain(word_at(text + length - size), quotes))
        return length;
    while (i < length && is_plain(text[i], quotes))
        i++;
    return i;
}

// The letter that stands for a byte behind a backslash, or NUL.
char letter_of(char byte) {
    switch (byte) {
    case '\n':
        return 'n';
    case '\r':
        return 'r';
    case '\t':
        return 't';
    case '\\':
    case '"':
        return byte;
    default:
        return '\0';
    }
}

// Writes the escaped form of a byte that is not plain; returns how many characters that took (at most 4).
size_t escape_byte(char byte, char out[4]) {
    static constexpr char digits[] = "0123456789abcdef";
    out[0] = '\\';
    if (const char letter = letter_of(byte)) {
        out[1] = letter;
        return 2;
    }
    const auto number = static_cast<unsigned char>(byte);
    out[1] = 'x';
    out[2] = digits[number >> 4];
    out[3] = digits[number & 15];
    return 4;
}

} // namespace

void common_line_add_bytes(common_line *line, const char *bytes, size_t length) {
    if (!common_line_has_room(line, length) && (line->cut || !make_room(line, length)))
        return;
    memcpy(line->text + line->length, bytes, length);
    line->length += length;
}

bool common_text_to_number(const char *text, int64_t low, int64_t high, int64_t *number) {
    if (text == nullptr || *text == '\0' || is_blank(*text))
        return false;
    const int digit = *text - '0';
    if (text[1] == '\0' && digit >= 0 && digit <= 9 && low <= digit && digit <= high) { // as most are
        *number = digit;
        return true;
    }
    int base = text[0] == '0' && (text[1] == 'x' || text[1] == 'X') ? 16 : 10;
    char *end = nullptr;
    errno = 0;
    long long value = strtoll(text, &end, base);
    if (errno != 0 || *end != '\0' || value < low || value > high)
        return false;
    *number = value;
    return true;
}

bool common_text_to_u32(const char *text, uint32_t *number) {
    int64_t value = 0;
    if (!common_text_to_number(text, 0, UINT32_MAX, &value))
        return false;
    *number = static_cast<uint32_t>(value);
    return true;
}

bool common_text_to_byte(const char *text, uint8_t *number) {
    int64_t value = 0;
    if (!common_text_to_number(text, 0, UINT8_MAX, &value))
        return false;
    *number = static_cast<uint8_t>(value);
    return true;
}

bool common_text_to_mac(const char *text, uint8_t mac[6]) {
    if (text == nullptr || strlen(text) != 17)
        return false;
    uint8_t bytes[6];
    for (size_t i = 0; i < 6; i++) {
        int high = digit_value(text[3 * i]);
        int low = digit_value(text[3 * i + 1]);
        if (high < 0 || low < 0 || (i < 5 && text[3 * i + 2] != ':'))
            return false;
        bytes[i] = static_cast<uint8_t>(high * 16 + low);
    }
    memcpy(mac, bytes, sizeof bytes);
    return true;
}

void common_mac_to_text(const uint8_t mac[6], char text[18]) {
    (void)snprintf(text, 18, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

bool common_text_to_pool(const char *text, uint8_t first[4], uint8_t last[4]) {
    char word[2][INET_ADDRSTRLEN];
    char extra[1];
    uint8_t address[2][4];
    for (int i = 0; i < 2; i++)
        if (common_next_word(&text, word[i], sizeof word[i]) != 1 ||
            inet_pton(AF_INET, word[i], address[i]) != 1)
            return false;
    if (common_next_word(&text, extra, sizeof extra) != 0)
        return false;
    memcpy(first, address[0], sizeof address[0]);
    memcpy(last, address[1], sizeof address[1]);
    return true;
}

int common_next_word(const char **rest, char *word, size_t size) {
    const char *start = *rest;
    while (is_blank(*start))
        start++;
    const char *end = start;
    while (*end != '\0' && !is_blank(*end))
        end++;
    *rest = end;
    size_t length = static_cast<size_t>(end - start);
    if (length == 0)
        return 0;
    if (length >= size)
        return -1;
    memcpy(word, start, length);
    word[length] = '\0';
    return 1;
}

bool common_copy_whole(char *field, size_t size, const char *text) {
    if (text == nullptr || strlen(text) >= size)
        return false;
    memcpy(field, text, strlen(text) + 1);
    return true;
}

common_line::~common_line() {
    if (text != first)
        free(text);
}

void common_line_add(common_line *line, const char *format, ...) {
    char part[512];
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(part, sizeof part, format, arguments);
    va_end(arguments);
    if (length < 0)
        return;
    size_t whole = static_cast<size_t>(length);
    common_line_add_bytes(line, part, whole < sizeof part ? whole : sizeof part - 1);
}

char *common_ipv4_to_text(const uint8_t ipv4[4], char *text) {
    for (size_t i = 0; i < 4; i++) {
        const unsigned byte = ipv4[i];
        if (byte >= 100)
            *text++ = static_cast<char>('0' + byte / 100);
        if (byte >= 10)
            *text++ = static_cast<char>('0' + byte / 10 % 10);
        *text++ = static_cast<char>('0' + byte % 10);
        *text++ = i < 3 ? '.' : '\0';
    }
    return text - 1;
}

void common_line_add_long_number(common_line *line, int64_t number) {
    char text[20]; // of 64 bits and a sign
    size_t at = sizeof text;
    uint64_t left = number < 0 ? 0 - static_cast<uint64_t>(number) : static_cast<uint64_t>(number);
    do
        text[--at] = static_cast<char>('0' + left % 10);
    while ((left /= 10) != 0);
    if (number < 0)
        text[--at] = '-';
    common_line_add_bytes(line, text + at, sizeof text - at);
}

void common_line_add_escaped(common_line *line, const char *text, size_t length, common_quotes quotes) {
    for (size_t i = 0; i < length; i++) {
        const size_t whole = plain_length(text + i, length - i, quotes);
        common_line_add_bytes(line, text + i, whole);
        i += whole;
        if (i == length)
            return;
        char escaped[4];
        const size_t size = escape_byte(text[i], escaped);
        common_line_add_bytes(line, escaped, size);
    }
}

void common_line_escape(common_line *line, size_t start, common_quotes quotes) {
    const size_t whole = line->length - start;
    const size_t before = plain_length(line->text + start, whole, quotes);
    if (before == whole)
        return;
    line->length = start + before;
    char few[256]; // a short rest needs no memory
    const size_t size = whole - before;
    char *rest = size <= sizeof few ? few : static_cast<char *>(malloc(size));
    line->cut = line->cut || rest == nullptr;
    if (rest == nullptr)
        return;
    memcpy(rest, line->text + line->length, size);
    common_line_add_escaped(line, rest, size, quotes);
    if (rest != few)
        free(rest);
}

void common_line_finish(common_line *line) {
    const char *end = line->cut ? common_line_cut_mark : "\n";
    memcpy(line->text + line->length, end, strlen(end));
    line->length += strlen(end);
}
