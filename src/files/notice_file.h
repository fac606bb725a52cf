// Taking a notification file away from the DHCP server that writes it: under its lock, whole, and only
// once it is safe in a file of the daemon's own.
#pragma once

#include <cstdio>

// One notification file's own temporary file and messages.
struct hbs_notice_source {
    const char *temporary;
    const char *copy_failed; // log texts
    const char *open_failed;
};

extern const hbs_notice_source hbs_dhcpv4_notice_source;
extern const hbs_notice_source hbs_dhcpv6_notice_source;

// Copies the rest of an open stream to a new file. Returns 0, also when the stream is null or the file
// cannot be written; -1 without memory for its buffer. The stream is neither rewound nor closed.
int hbs_file_copy(FILE *stream, const char *path);

// Empties the notification file at `path` and returns what was in it as text, which the caller frees.
// A NUL byte in it becomes a line end, so that what follows it is not lost. Null when there is nothing
// to do (no path, an empty file) or it failed (logged); unless it could be copied whole, the file is
// left as it is, and the call returns only after a second: whoever watches the file is told of it again.
char *hbs_notice_take(const char *path, const hbs_notice_source *source);

// The second half of the above: the text of the source's temporary file, or null (logged).
char *hbs_notice_read(const hbs_notice_source *source);
