// Line edits of text files, in-process: the content that the named `sed`/`echo` command would leave,
// with the file replaced whole (written beside, flushed, synced, renamed over) under an exclusive
// flock. A power cut at any moment leaves the old file or the new one. Knows nothing of clients.
//
// Each returns 0 when the file now has the wanted content (also when there was nothing to change),
// or -1 when it could not be read, written or replaced: the old file is then intact and the reason is
// logged. A missing file is -1 except for hbs_lines_append and hbs_file_replace, which create it. Lines may
// be of any length. The caller must not hold the file open under a lock of its own: it would wait for itself.
#pragma once

#include <cstddef>

// Adds a line (without its newline) at the end; a last line without a newline gets one first.
int hbs_lines_append(const char *path, const char *line);

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

// Replaces the whole content of a file (created when missing, mode 0644 else the old file's mode).
int hbs_file_replace(const char *path, const char *content, size_t length);

// Name of the file beside `path` that a replacement is written to before the rename; what a power cut
// leaves there is removed by the next edit and by hbs_file_clear_leftover.
void hbs_file_clear_leftover(const char *path);
