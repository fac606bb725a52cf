// Temporary files of fixed names in /var/tmp.
#include "base/scratch_file.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

#include "base/log.h"

FILE *hbs_scratch_open(const char *path) {
    (void)unlink(path);
    const int descriptor = open(path, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    FILE *stream = descriptor == -1 ? nullptr : fdopen(descriptor, "w+");
    if (stream != nullptr)
        return stream;
    HBS_LOG(HBS_ERROR, "HOSTBASE: can't create %s (error %d)", path, errno);
    if (descriptor != -1)
        (void)close(descriptor);
    return nullptr;
}
