// Taking a notification file away from the DHCP server that writes it: under its lock, whole, and only
// once it is safe in a file of the daemon's own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>

// One notification file's own temporary file and messages.
struct hbs_notice_source {
    const char *temporary;
    const char *copy_failed; // log texts
    const char *open_failed;
};

extern const hbs_notice_source hbs_dhcpv4_notice_source;
extern const hbs_notice_source hbs_dhcpv6_notice_source;

// A file larger than this is no server's: it is dropped, so that it fills neither memory nor /var/tmp.
constexpr int64_t HBS_NOTICE_FILE_MAX = 16 << 20;

// A word of a line is cut to the first of these, a line to the second: longer than all that is kept of one.
constexpr size_t HBS_NOTICE_WORD_MAX = 1024;
constexpr size_t HBS_NOTICE_LINE_MAX = 16384;

// Copies the rest of an open stream to a new file. Returns 0, also when the stream is null or the file
// cannot be written; -1 without memory for its buffer. The stream is neither rewound nor closed.
int hbs_file_copy(FILE *stream, const char *path);

// Gets one line that is not empty, without its line end; it may change it. A NUL byte ends a line too, so
// that what follows it is not lost.
using hbs_notice_reader = void (*)(char *line, void *context);

// What became of a notification file: whether its lines were handed over, and whether it is still as it was
// (logged) and has to be looked at again after a while. Neither: there was nothing in it, or it was dropped
// (logged). Both: it could not be emptied, so its lines come again.
struct hbs_notice_taken {
    bool lines;
    bool again;
};

// Empties the notification file at `path` (null: nothing to do) and hands its lines over, in order. The file
// watch thread alone calls it: its buffers are static, so that nothing can fail any more once the file is
// empty.
hbs_notice_taken hbs_notice_take(const char *path, const hbs_notice_source *source, hbs_notice_reader reader,
                                 void *context);

// Logs that a file that was taken held nothing of use.
void hbs_notice_log_no_data();
