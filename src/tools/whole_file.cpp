#include "tools/whole_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string &path, const char *what) {
    throw std::runtime_error(path + " " + what + ": " + strerror(errno));
}

void write_to(const std::string &path, const std::string &text) {
    std::ofstream file(path, std::ios::binary);
    file << text << std::flush;
    if (!file)
        fail(path, "cannot be written");
}

} // namespace

void write_whole_file(const std::string &path, const std::string &text) {
    struct stat there = {};
    if (stat(path.c_str(), &there) == 0 && !S_ISREG(there.st_mode)) {
        write_to(path, text);
        return;
    }
    const std::string beside = path + ".new" + std::to_string(getpid());
    write_to(beside, text);
    if (rename(beside.c_str(), path.c_str()) != 0) {
        const int reason = errno;
        (void)unlink(beside.c_str());
        errno = reason;
        fail(path, "cannot be replaced");
    }
}

std::string read_whole_file(const std::string &path) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file)
        fail(path, "cannot be read");
    return text.str();
}
