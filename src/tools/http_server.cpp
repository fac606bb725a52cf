#include "tools/http_server.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tools/session.h"

namespace {

constexpr int shortage_milliseconds = 10; // until it may be over

int new_event() {
    const int fd = eventfd(0, EFD_CLOEXEC);
    if (fd < 0)
        throw run_error(exit_failed, std::string("cannot serve: ") + strerror(errno));
    return fd;
}

// Each of many ranges may be the whole: they would make a page as large as one likes.
void ignore_many_ranges(httplib::Request &request) {
    if (request.ranges.size() > 1)
        request.ranges.clear();
}

} // namespace

http_server::http_server(const http_bounds &bounds, const std::string &endless)
    : bounds_(bounds), endless_(endless), end_(new_event()) {}

http_server::~http_server() {
    {
        const std::lock_guard hold(mutex_);
        ends_ = true;
    }
    news_.notify_all();
    (void)eventfd_write(end_, 1);
    if (listener_.joinable())
        listener_.join();
    for (std::thread &worker : workers_)
        worker.join();
    for (const http_peer &peer : waiting_)
        close(peer.socket);
    if (svr_sock_ != INVALID_SOCKET)
        close(svr_sock_);
    close(end_);
}

void http_server::start(unsigned workers) {
    (void)fcntl(svr_sock_, F_SETFL, O_NONBLOCK); // whom poll() saw may have gone before he is taken
    (void)::listen(svr_sock_, SOMAXCONN);        // the library has the kernel keep five at most
    listener_ = std::thread([this] { listen_on(); });
    while (workers_.size() < workers)
        workers_.emplace_back([this] { work(); });
}

void http_server::listen_on() {
    pollfd sources[] = {{svr_sock_, POLLIN, 0}, {end_, POLLIN, 0}};
    while (still_listens()) {
        (void)poll(sources, 2, -1);
        if (sources[1].revents != 0)
            return;
        take_connection();
    }
    ended_ = true;
}

// One that the network took back is no reason to end, nor is that the system is short of something.
void http_server::take_connection() {
    const int socket = accept4(svr_sock_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) {
        pollfd end = {end_, POLLIN, 0};
        (void)poll(&end, 1, shortage_milliseconds);
        return;
    }
    if (!may_wait(socket))
        close(socket);
}

bool http_server::may_wait(int socket) {
    const std::lock_guard hold(mutex_);
    if (waiting_.size() >= bounds_.most_waiting)
        return false;
    waiting_.push_back({socket, std::chrono::steady_clock::now()});
    news_.notify_one();
    return true;
}

bool http_server::still_listens() const {
    int listens = 0;
    socklen_t size = sizeof listens;
    return getsockopt(svr_sock_, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens != 0;
}

void http_server::work() {
    while (const std::optional<http_peer> peer = next_peer())
        serve(*peer);
}

// None at the end.
std::optional<http_peer> http_server::next_peer() {
    std::unique_lock hold(mutex_);
    news_.wait(hold, [this] { return ends_ || !waiting_.empty(); });
    if (ends_)
        return std::nullopt;
    const http_peer peer = waiting_.front();
    waiting_.pop_front();
    return peer;
}

// One request a connection: what follows a refused one, its body for one, is never taken for another.
void http_server::serve(const http_peer &peer) {
    http_connection connection(peer, bounds_, end_);
    bool closed = true;
    (void)process_request(connection, true, closed, [&](httplib::Request &request) {
        ignore_many_ranges(request);
        if (request.path != endless_)
            connection.limit_answer();
    });
}
