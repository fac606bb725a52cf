// The logger: one line a message to standard error, its priority first as the journal reads it, or a datagram
// to syslog. Never waits: what cannot be taken at once is lost, and counted.
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <logger.h>

#include "common_message.h"
#include "common_text.h"
#include "linux_conf.h"
#include "linux_log.h"

namespace {

constexpr const char *syslog_socket = "/dev/log";
constexpr unsigned daemon_facility = 3;

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
int syslog_fd = -1;
unsigned lost; // lines since the last one that was taken

// The priorities of syslog, in the order of the severities.
unsigned priority_of(uint32_t severity) {
    static constexpr struct {
        uint32_t up_to;
        unsigned priority;
    } rows[] = {{0, 1}, {1, 2}, {3, 3}, {9, 6}};
    for (const auto &row : rows)
        if (severity <= row.up_to)
            return row.priority;
    return 7;
}

bool connect_syslog() {
    if (syslog_fd >= 0)
        return true;
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, syslog_socket, strlen(syslog_socket));
    syslog_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (syslog_fd >= 0 && connect(syslog_fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0)
        return true;
    if (syslog_fd >= 0)
        (void)close(syslog_fd);
    syslog_fd = -1;
    return false;
}

// A syslog that was restarted has a new socket: once more.
bool send_syslog(const char *line, size_t length) {
    for (int attempt = 0; attempt < 2 && connect_syslog(); attempt++) {
        if (send(syslog_fd, line, length, MSG_NOSIGNAL) >= 0)
            return true;
        if (errno == EAGAIN)
            return false;
        (void)close(syslog_fd);
        syslog_fd = -1;
    }
    return false;
}

// A pipe that is ready takes so much whole, of more it would wait for its reader.
void cut_to_pipe(common_line *line) {
    static constexpr char mark[] = {' ', '[', 'c', 'u', 't', ']', '\n'};
    if (line->length <= PIPE_BUF)
        return;
    line->length = PIPE_BUF;
    memcpy(line->text + line->length - sizeof mark, mark, sizeof mark);
}

// A socket is asked not to wait. A pipe that nobody reads any more is ready, and gives an error: no signal is
// taken.
bool write_stderr(const char *line, size_t length) {
    pollfd out = {STDERR_FILENO, POLLOUT, 0};
    if (poll(&out, 1, 0) != 1 || (out.revents & POLLOUT) == 0)
        return false;
    ssize_t part = send(STDERR_FILENO, line, length, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (part < 0 && errno == ENOTSOCK)
        part = write(STDERR_FILENO, line, length);
    return part >= 0;
}

bool put(unsigned priority, const char *text, size_t length) {
    common_line line;
    const bool to_syslog = linux_settings()->syslog;
    if (to_syslog)
        common_line_add(&line, "<%u>gw_hostbase[%d]: ", daemon_facility * 8 + priority, getpid());
    else
        common_line_add(&line, "<%u>", priority);
    common_line_add_escaped(&line, text, length, common_quotes::plain);
    if (to_syslog)
        return send_syslog(line.text, line.length);
    common_line_finish(&line);
    cut_to_pipe(&line);
    return write_stderr(line.text, line.length);
}

void put_or_count(uint32_t severity, const common_message *message) {
    (void)pthread_mutex_lock(&lock);
    if (lost > 0) {
        char note[64];
        (void)snprintf(note, sizeof note, "%u messages were lost", lost);
        if (put(priority_of(3), note, strlen(note)))
            lost = 0;
    }
    if (!put(priority_of(severity), message->text, message->size))
        lost++;
    (void)pthread_mutex_unlock(&lock);
}

__attribute__((format(printf, 2, 0))) void log_arguments(uint32_t severity, const char *format,
                                                         va_list arguments) {
    const int saved_errno = errno; // a caller may log before it looks at errno
    if (severity <= linux_settings()->level) {
        common_message message;
        common_message_format(&message, format, arguments);
        // Some of the daemon's messages end with a newline of their own.
        if (message.size > 0 && message.text[message.size - 1] == '\n')
            message.size--;
        put_or_count(severity, &message);
    }
    errno = saved_errno;
}

} // namespace

void linux_log(uint32_t severity, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log_arguments(severity, format, arguments);
    va_end(arguments);
}

void logger_register_level_cb(logger_level_cb callback) {
    if (callback != nullptr)
        callback(linux_settings()->level);
}

void logger_build_send_log_msg(const hbs_log_site *site, int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log_arguments(site->severity, format, arguments);
    va_end(arguments);
}
