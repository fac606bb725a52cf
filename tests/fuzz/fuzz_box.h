// What targets that touch files do first: only in the box are the daemon's fixed paths their own. The
// gateway is that of the example values, and nothing is logged.
#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>

inline void fuzz_in_box() {
    if (getenv("HBS_BOX") == nullptr) {
        fprintf(stderr,
                "fuzz targets touch the daemon's fixed paths: run them by script/fuzz or script/box\n");
        exit(1);
    }
    setenv("HBS_HOST_CONF", HBS_FUZZ_VALUES, 1);
    setenv("HBS_HOST_LOG", "/dev/null", 1);
    setenv("HBS_HOST_JOURNAL", "/dev/null", 1);
}

inline void fuzz_write_file(const char *path, const void *data, size_t size) {
    FILE *file = fopen(path, "w");
    if (file == nullptr || fwrite(data, 1, size, file) != size || fclose(file) != 0)
        abort();
}
