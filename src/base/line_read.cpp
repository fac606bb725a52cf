// Reads the text files of other programs a line at a time.
#include "base/line_read.h"

bool hbs_line_read(FILE *stream, char *line, size_t size) {
    size_t length = 0;
    bool usable = true;
    for (int byte; (byte = getc_unlocked(stream)) != EOF;) {
        if (byte == '\n' && usable) {
            line[length] = 0;
            return true;
        }
        if (byte == '\n') {
            length = 0;
            usable = true;
            continue;
        }
        usable = usable && byte != 0 && length + 1 < size;
        if (usable)
            line[length++] = static_cast<char>(byte);
    }
    line[length] = 0;
    return usable && length > 0;
}
