// Line edits of text files, in-process: the content that the named `sed`/`echo` command would leave,
// with the file replaced whole (written beside, flushed, synced, renamed over) under an exclusive
// flock. A power cut at any moment leaves the old file or the new one. Knows nothing of clients.
//
// Each returns 0 when the file now has the wanted content (also when there was nothing to change),
// or -1 when it could not be read, written or replaced: the old file is then intact and the reason is
// logged. A missing file is -1 except for hbs_lines_append and hbs_file_replace, which create it for this
// user alone (mode 0600); one that is there keeps its mode. Lines may be of any length. A lock is waited for
// as locked_file says; what is no plain file cannot be opened. The caller must not hold the file open under a
// lock of its own: it would wait for itself.
#pragma once

#include <cstddef>
#include <sys/types.h>

// Adds a line (without its newline) at the end; a last line without a newline gets one first.
int hbs_lines_append(const char *path, const char *line);

// The same in place, for a file whose other writers keep it open while they wait for the lock: the file stays
// the same one. A power cut can leave a part of the line, which the next addition ends with a newline of its
// own. A missing file is created with `mode`. What could not be written whole is taken back.
int hbs_line_append_in_place(const char *path, const char *line, mode_t mode);

// Where a file ends: 0 behind a whole line (or it is missing or empty), 1 in the middle of one, as a power
// cut leaves it, -1 when it cannot be opened.
int hbs_file_tail(const char *path);

// Replaces each line equal to `old_line` by `new_line`, wherever it stands.
int hbs_lines_replace(const char *path, const char *old_line, const char *new_line);

// Removes each line that begins with `prefix`.
int hbs_lines_delete_prefix(const char *path, const char *prefix);

// Removes each line that contains `text`. deleted [out, may be null] how many that were.
int hbs_lines_delete_containing(const char *path, const char *text, size_t *deleted);

// Rewrites the file through a function: `edit` gets each line (without newline; length in bytes) and
// decides. With hbs_line_action::replace the replacement that it stored in `*replacement` (a
// NUL-terminated text that lives until the next call) is written.
enum class hbs_line_action { keep, drop, replace };
using hbs_line_editor = hbs_line_action (*)(const char *line, size_t length, const char **replacement,
                                            void *context);
int hbs_lines_edit(const char *path, hbs_line_editor edit, void *context);

// Replaces the whole content of a file. content: null where there was no memory for it, which fails.
int hbs_file_replace(const char *path, const char *content, size_t length);

// Has the directory of a file remember which names it holds: without this a rename or a removal could be lost
// in a power cut, and the old file would be there again. Failures are logged.
void hbs_directory_sync(const char *path);

// Takes everybody else's access to a file away, so that nobody can hold its lock. A missing file is left so.
void hbs_file_make_private(const char *path);

// Name of the file beside `path` that a replacement is written to before the rename; what a power cut
// leaves there is removed by the next edit and by hbs_file_clear_leftover.
void hbs_file_clear_leftover(const char *path);
