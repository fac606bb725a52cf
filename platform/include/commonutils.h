/* File helpers of the gateway. */
#ifndef HBS_PLATFORM_COMMONUTILS_H
#define HBS_PLATFORM_COMMONUTILS_H

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

/* Adds a text at the end of a file, which is created when missing. Returns 0, or -1. */
int COMMONUTILS_file_write(const char *path, const char *text);

/* Adds the contents of file `from` at the end of file `to`. Returns 0, or -1. */
int COMMONUTILS_file_append(const char *from, const char *to);

/* Makes `to` a copy of `from`, created or replaced. Returns 0, or -1. */
int COMMONUTILS_file_copy(const char *from, const char *to);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
