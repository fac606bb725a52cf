#include "tools/command_client.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <optional>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "base/paths.h"

namespace {

using clock_type = std::chrono::steady_clock;

struct descriptor {
    int fd;
    explicit descriptor(int number) : fd(number) {}
    ~descriptor() {
        if (fd != -1)
            close(fd);
    }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
};

// A directory that only this user can enter, so that nobody else can answer in the daemon's place or
// put something else where the socket goes. Beside the daemon's socket, where that may be written: a daemon
// that is a service may have a /tmp of its own.
struct private_path {
    std::string directory;
    std::string socket;
    private_path() {
        for (const char *place : {HBS_SCRATCH_DIR, HBS_TEMPORARY_DIR}) {
            std::string name = std::string(place) + "/hbsctl-XXXXXX";
            if (mkdtemp(name.data()) != nullptr) {
                directory = name;
                socket = name + "/answer";
                return;
            }
        }
        throw daemon_error(daemon_error::failed,
                           std::string("cannot make a directory for the answer: ") + strerror(errno));
    }
    ~private_path() {
        unlink(socket.c_str());
        rmdir(directory.c_str());
    }
    private_path(const private_path &) = delete;
    private_path &operator=(const private_path &) = delete;
};

// Holds the signals that end a program back while it has something to clean up.
struct held_signals {
    sigset_t set, before;
    held_signals() {
        sigemptyset(&set);
        for (int number : {SIGINT, SIGTERM, SIGHUP})
            sigaddset(&set, number);
        sigprocmask(SIG_BLOCK, &set, &before);
    }
    ~held_signals() { sigprocmask(SIG_SETMASK, &before, nullptr); }
    held_signals(const held_signals &) = delete;
    held_signals &operator=(const held_signals &) = delete;
};

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path)
        throw daemon_error(daemon_error::failed, "the socket path is too long");
    memcpy(address.sun_path, path.data(), path.size());
    return address;
}

const sockaddr *generic(const sockaddr_un *address) {
    return reinterpret_cast<const sockaddr *>(address);
}

daemon_error error_of_errno(const std::string &socket_path) {
    const int error = errno;
    if (error == ENOENT || error == ECONNREFUSED || error == ENOTCONN)
        return {daemon_error::not_there, "gw_hostbase is not running: nobody receives on " + socket_path};
    if (error == EAGAIN || error == EINTR)
        return {daemon_error::no_answer, "gw_hostbase does not take anything from its command socket"};
    return {daemon_error::failed, socket_path + ": " + strerror(error)};
}

// Connected, so that only the daemon's datagrams arrive, and with a bound on every send.
void connect_to(int fd, const std::string &socket_path, double seconds) {
    const sockaddr_un daemon = address_of(socket_path);
    timeval limit = {};
    limit.tv_sec = static_cast<time_t>(seconds);
    limit.tv_usec = static_cast<suseconds_t>((seconds - static_cast<double>(limit.tv_sec)) * 1e6) + 1;
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    if (fd == -1 || connect(fd, generic(&daemon), sizeof daemon) != 0)
        throw error_of_errno(socket_path);
}

void send_all(int fd, const datagram &message, const std::string &socket_path) {
    if (send(fd, message.data(), message.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(message.size()))
        throw error_of_errno(socket_path);
}

int milliseconds_left(clock_type::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock_type::now());
    return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

// The answer, or the number of the signal that ended the wait.
struct outcome {
    std::string answer;
    int signal;
};

outcome wait_for_answer(int fd, int signal_fd, double seconds, const std::string &socket_path) {
    const auto limit =
        std::chrono::duration_cast<clock_type::duration>(std::chrono::duration<double>(seconds));
    const auto deadline = clock_type::now() + limit;
    pollfd waits[] = {{fd, POLLIN, 0}, {signal_fd, POLLIN, 0}};
    while (poll(waits, 2, milliseconds_left(deadline)) > 0) {
        signalfd_siginfo arrived = {};
        if ((waits[1].revents & POLLIN) != 0 && read(signal_fd, &arrived, sizeof arrived) == sizeof arrived)
            return {"", static_cast<int>(arrived.ssi_signo)};
        char bytes[8192];
        const ssize_t size = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
        if (size >= 0)
            return {std::string(bytes, static_cast<size_t>(size)), 0};
        if (errno != EAGAIN)
            throw error_of_errno(socket_path);
    }
    throw daemon_error(daemon_error::no_answer, "gw_hostbase did not answer in time");
}

outcome exchange(const datagram &message, const std::string &socket_path, double seconds) {
    const held_signals held;
    const private_path own;
    const descriptor signals(signalfd(-1, &held.set, SFD_CLOEXEC));
    const descriptor socket_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = address_of(own.socket);
    if (socket_fd.fd == -1 || bind(socket_fd.fd, generic(&address), sizeof address) != 0 ||
        chmod(own.socket.c_str(), 0600) != 0)
        throw daemon_error(daemon_error::failed, own.socket + ": " + strerror(errno));
    connect_to(socket_fd.fd, socket_path, seconds);
    send_all(socket_fd.fd, message, socket_path);
    return wait_for_answer(socket_fd.fd, signals.fd, seconds, socket_path);
}

} // namespace

void send_event(const datagram &message, const std::string &socket_path) {
    const descriptor socket_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    connect_to(socket_fd.fd, socket_path, 2);
    send_all(socket_fd.fd, message, socket_path);
}

int32_t send_command(const datagram &message, const std::string &socket_path, double seconds) {
    const outcome result = exchange(message, socket_path, seconds);
    if (result.signal != 0) {
        raise(result.signal);
        throw daemon_error(daemon_error::no_answer, "interrupted before gw_hostbase answered");
    }
    int32_t answer = 0;
    if (result.answer.size() != sizeof answer)
        throw daemon_error(daemon_error::failed, "the answer is not four bytes long");
    memcpy(&answer, result.answer.data(), sizeof answer);
    return answer;
}

std::optional<std::string> ask_in_words(const std::string &question, const std::string &socket_path,
                                        double seconds) {
    try {
        const outcome result = exchange(datagram(question.begin(), question.end()), socket_path, seconds);
        if (result.signal == 0)
            return result.answer;
        raise(result.signal);
    } catch (const daemon_error &) {
        // Said in the header: there is no answer.
    }
    return std::nullopt;
}

bool daemon_is_there(const std::string &socket_path) {
    const descriptor socket_fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (socket_fd.fd == -1)
        throw daemon_error(daemon_error::failed,
                           std::string("cannot find out whether gw_hostbase is running: ") + strerror(errno));
    const sockaddr_un daemon = address_of(socket_path);
    if (connect(socket_fd.fd, generic(&daemon), sizeof daemon) == 0 || errno == EACCES || errno == EPERM)
        return true;
    daemon_error why_not = error_of_errno(socket_path);
    if (why_not.why != daemon_error::not_there)
        throw why_not;
    return false;
}
