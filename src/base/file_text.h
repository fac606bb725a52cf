// The text of a whole file of settings. Such a file is read to its end before anything is made of it: a
// reader that gave up in the middle, for want of memory or of a descriptor, would take what it has not seen
// for missing, and the next write would make that true.
#pragma once

#include <cstddef>

enum class hbs_file_read {
    done,
    missing, // there is nothing, or what is there is no plain file
    failed   // it is there and could not be read (logged); nothing may be concluded from that
};

// Owns its memory.
struct hbs_file_text {
    char *data = nullptr; // ends with a NUL behind its length
    size_t length = 0;
    size_t next = 0;  // where the next line begins
    char covered = 0; // what stood where the last line's NUL is now
    hbs_file_text() = default;
    hbs_file_text(const hbs_file_text &) = delete;
    hbs_file_text &operator=(const hbs_file_text &) = delete;
    ~hbs_file_text();
};

// Reads at most `most` bytes of a file into *text, which is fresh. What failed for a moment is tried again.
hbs_file_read hbs_file_text_read(const char *path, size_t most, hbs_file_text *text);

// The next line with its newline, which may be missing from the last one; null at the end. The caller may
// change it; it is there until the next call.
char *hbs_file_text_line(hbs_file_text *text);
