// What driver and bare programs share: files read whole, Unix datagram sockets, the clock. A failure ends the
// program.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

[[noreturn]] inline void fail(const char *what) {
    perror(what);
    exit(1);
}

inline std::string whole_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        fail(path.c_str());
    return {std::istreambuf_iterator<char>(file), {}};
}

inline std::vector<std::string> pieces_of(const std::string &text, size_t size) {
    std::vector<std::string> pieces;
    for (size_t at = 0; at + size <= text.size(); at += size)
        pieces.push_back(text.substr(at, size));
    return pieces;
}

// Each with its newline.
inline std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at < text.size();) {
        const size_t end = text.find('\n', at);
        lines.push_back(text.substr(at, end == std::string::npos ? end : end + 1 - at));
        at += lines.back().size();
    }
    return lines;
}

inline sockaddr_un unix_address(const std::string &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.data(), path.size());
    return address;
}

// own: where answers come to, empty = nowhere.
inline int datagram_socket(const std::string &own) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = unix_address(own);
    if (fd < 0)
        fail("socket");
    (void)unlink(own.c_str());
    if (!own.empty() && bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        fail(own.c_str());
    return fd;
}

inline int64_t now_ns() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}
