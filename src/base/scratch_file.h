// Temporary files of fixed names in /var/tmp, where anybody may put something in the way.
#pragma once

#include <cstdio>

// Creates an empty file of that name for writing and reading, removing what bore the name before (a link
// is not followed). Only this user can open it. Returns the stream, or null (logged). The caller unlinks the
// file.
FILE *hbs_scratch_open(const char *path);

// The same without a log line: errno says why it is null.
FILE *hbs_scratch_make(const char *path);
