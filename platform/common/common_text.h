// Parsing of the texts in the file of values, and growing lines of text for log and journal. Nothing here
// locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// Reads a whole text as a number, decimal or hexadecimal with "0x". Returns whether it is one inside
// [low, high]; *number is untouched otherwise. A null text is no number.
bool common_text_to_number(const char *text, int64_t low, int64_t high, int64_t *number);
bool common_text_to_u32(const char *text, uint32_t *number);
bool common_text_to_byte(const char *text, uint8_t *number);

// Reads a whole text as a MAC address, six pairs of hex digits joined by colons. mac is untouched
// when it is none. A null text is none.
bool common_text_to_mac(const char *text, uint8_t mac[6]);

// As log lines and drivers have it: upper case.
void common_mac_to_text(const uint8_t mac[6], char text[18]);

// An address with its NUL, as inet_ntop writes it. Returns where the NUL stands.
char *common_ipv4_to_text(const uint8_t ipv4[4], char text[16]);

// Reads a whole text as two IPv4 addresses. Nothing is touched when it is not that.
bool common_text_to_pool(const char *text, uint8_t first[4], uint8_t last[4]);

// Copies the next blank-separated word of *rest and moves *rest behind it.
// Returns 1 for a word, 0 at the end, -1 when the word does not fit (word untouched).
int common_next_word(const char **rest, char *word, size_t size);

// Copies a whole text with its NUL. Returns false, field untouched, when it is null or does not fit.
bool common_copy_whole(char *field, size_t size, const char *text);

// One line under construction. Short lines need no memory of their own; a line that memory runs out for
// says so at its end.
struct common_line {
    char *text = first;
    size_t length = 0;
    size_t capacity = sizeof first;
    bool cut = false;
    char first[1024]; // as long as `length` says

    common_line() { first[0] = '\0'; }
    ~common_line();
    common_line(const common_line &) = delete;
    common_line &operator=(const common_line &) = delete;
};

// What always fits behind the text: a newline, or the mark of a line that memory ran out for.
constexpr char common_line_cut_mark[] = " [cut: out of memory]\n";

inline bool common_line_has_room(const common_line *line, size_t more) {
    return !line->cut && line->length + more + sizeof common_line_cut_mark <= line->capacity;
}

// Adds formatted text as it is. Only for texts without control characters: the platform's own.
void common_line_add(common_line *line, const char *format, ...) __attribute__((format(printf, 2, 3)));

// The same without a format: so many bytes, a text, a number in decimal. What stands in the code has a length
// that the compiler knows.
void common_line_add_bytes(common_line *line, const char *bytes, size_t length);
inline __attribute__((always_inline)) void common_line_add_text(common_line *line, const char *text) {
    const size_t length = strlen(text);
    if (!common_line_has_room(line, length)) {
        common_line_add_bytes(line, text, length);
        return;
    }
    memcpy(line->text + line->length, text, length);
    line->length += length;
}
void common_line_add_long_number(common_line *line, int64_t number);
inline void common_line_add_number(common_line *line, int64_t number) {
    if (number >= 0 && number < 10 && common_line_has_room(line, 1))
        line->text[line->length++] = static_cast<char>('0' + number);
    else
        common_line_add_long_number(line, number);
}

// Adds text from elsewhere in printable ASCII: \n \t \r \\ \" and \xNN for any other byte outside 0x20-0x7e.
// `quotes` says whether a double quote is escaped too.
enum class common_quotes { plain, escaped };
void common_line_add_escaped(common_line *line, const char *text, size_t length, common_quotes quotes);

// Brings what was added as it is, from `start` on, into that form. Nearly every text is plain, which this
// sees a word at a time.
void common_line_escape(common_line *line, size_t start, common_quotes quotes);

// Ends the line with its newline.
void common_line_finish(common_line *line);
