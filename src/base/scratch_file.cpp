// Temporary files of fixed names in /var/tmp.
#include "base/scratch_file.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "base/log.h"
#include "base/plain_file.h"

FILE *hbs_scratch_make(const char *path) {
    (void)unlink(path);
    return hbs_stream_of(hbs_plain_open(path, O_RDWR | O_CREAT | O_EXCL, 0600), "w+");
}

FILE *hbs_scratch_open(const char *path) {
    FILE *stream = hbs_scratch_make(path);
    if (stream == nullptr)
        HBS_LOG(HBS_ERROR, "HOSTBASE: can't create %s (error %d)", path, errno);
    return stream;
}
