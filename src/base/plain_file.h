// Opens by name nothing but plain files, and never waits for it. In /var/tmp and in the DHCP servers'
// directories others may put something in the way: a FIFO would hold the caller for ever, a symbolic link
// would lead it to a file of somebody else's. Every file in such a place is opened here.
#pragma once

#include <cstdio>
#include <sys/types.h>

// Opens with the flags of open(2); the descriptor is not inherited. With O_CREAT a missing file is made with
// `mode` (cut by the umask), and one that is there is opened whoever owns it. O_TRUNC empties only what
// proved to be a plain file. Returns the descriptor, or -1 with errno: ELOOP for a symbolic link, EISDIR for
// a directory, EINVAL for anything else that is no plain file.
int hbs_plain_open(const char *path, int flags, mode_t mode);

// The same as a stream, for the stdio modes "r" and "r+".
FILE *hbs_plain_stream(const char *path, const char *mode);

// A stream over a descriptor that it takes over: closed when there is no memory for a stream (null, errno).
FILE *hbs_stream_of(int descriptor, const char *mode);

// Closes, and leaves errno as it is.
void hbs_close_keeping_errno(int descriptor);
