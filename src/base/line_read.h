// Reads the text files of other programs a line at a time, whatever is in them.
#pragma once

#include <cstddef>
#include <cstdio>

// Next usable line of a stream into `line`, without its newline. Lines of `size` bytes or more and lines
// that hold a NUL byte are skipped whole, so that no piece of one is taken for a line of its own.
// Returns false at the end of the file (and on a read error).
bool hbs_line_read(FILE *stream, char *line, size_t size);
