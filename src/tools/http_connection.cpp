#include "tools/http_connection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using clock = std::chrono::steady_clock;

int milliseconds_until(clock::time_point when) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(when - clock::now());
    return static_cast<int>(std::clamp<long>(left.count(), 0, 60000));
}

bool must_wait() {
    return errno == EAGAIN || errno == EINTR;
}

// A follower who has gone is found out before anything is written to him.
bool has_gone(int socket) {
    char next = 0;
    return recv(socket, &next, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

} // namespace

http_connection::~http_connection() {
    (void)shutdown(socket_, SHUT_RDWR);
    close(socket_);
}

// Whether it is so by then, or is so already.
bool http_connection::wait_for(short what, clock::time_point until) const {
    pollfd sources[] = {{socket_, what, 0}, {end_, POLLIN, 0}};
    int found = 0;
    do
        found = poll(sources, 2, milliseconds_until(until));
    while (found < 0 && errno == EINTR);
    return found > 0 && sources[0].revents != 0;
}

bool http_connection::is_readable() const {
    return wait_for(POLLIN, head_until_);
}

bool http_connection::is_writable() const {
    const clock::time_point now = clock::now();
    return now < answer_until_ && wait_for(POLLOUT, std::min(answer_until_, now + bounds_.write_patience)) &&
           !has_gone(socket_);
}

// Returns false at the end of what the peer sends, or may send.
bool http_connection::fill() {
    ssize_t size = 0;
    do {
        if (left_ == 0 || !is_readable())
            return false;
        size = recv(socket_, block_.data(), std::min(left_, block_.size()), MSG_DONTWAIT);
    } while (size < 0 && must_wait());
    taken_ = 0;
    there_ = size < 0 ? 0 : static_cast<size_t>(size);
    left_ -= there_;
    return there_ > 0;
}

ssize_t http_connection::read(char *data, size_t size) {
    if (taken_ == there_ && !fill())
        return 0;
    const size_t part = std::min(size, there_ - taken_);
    memcpy(data, &block_[taken_], part);
    taken_ += part;
    return static_cast<ssize_t>(part);
}

ssize_t http_connection::write(const char *data, size_t size) {
    ssize_t written = 0;
    do {
        if (!is_writable())
            return -1;
        written = send(socket_, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    } while (written < 0 && must_wait());
    return written;
}
