// The logger: one line a message in the log file, the severity first.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <logger.h>

#include "host_sink.h"
#include "host_values.h"

namespace {

host_sink log_file = {"HBS_HOST_LOG", "/var/lib/hbs-host/log", PTHREAD_MUTEX_INITIALIZER, -1};

constexpr uint32_t longest_delay_ms = 60000;

void add_severity(host_line *line, uint32_t severity) {
    static constexpr struct {
        uint32_t code;
        const char *word;
    } words[] = {{0, "fatal "}, {1, "alert "}, {3, "error "}, {9, "info "}, {15, "debug "}};
    for (const auto &known : words) {
        if (known.code == severity) {
            host_line_add(line, "%s", known.word);
            return;
        }
    }
    host_line_add(line, "%u ", severity);
}

// A formatted message; short ones need no memory of their own.
struct message {
    char *text = first;
    size_t size = 0;
    bool cut = false; // memory ran out for a long one
    char first[1024] = {};

    message() = default;
    ~message() {
        if (text != first)
            free(text);
    }
    message(const message &) = delete;
    message &operator=(const message &) = delete;
};

__attribute__((format(printf, 2, 0))) void format_message(message *out, const char *format,
                                                          va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    int length = vsnprintf(out->first, sizeof out->first, format, arguments);
    out->size = length < 0 ? 0 : static_cast<size_t>(length);
    if (out->size >= sizeof out->first) {
        char *whole = static_cast<char *>(malloc(out->size + 1));
        out->cut = whole == nullptr;
        if (whole != nullptr) {
            (void)vsnprintf(whole, out->size + 1, format, again);
            out->text = whole;
        } else {
            out->size = sizeof out->first - 1;
        }
    }
    va_end(again);
}

// A logger that takes its time, as a busy one does.
void delay_as_told() {
    uint32_t milliseconds = 0;
    {
        host_values_hold hold;
        if (!host_text_to_u32(host_value("log.delay_ms"), &milliseconds) || milliseconds > longest_delay_ms)
            return;
    }
    if (milliseconds == 0)
        return;
    timespec left = {static_cast<time_t>(milliseconds / 1000),
                     static_cast<long>(milliseconds % 1000) * 1000000};
    while (nanosleep(&left, &left) == -1 && errno == EINTR) {}
}

} // namespace

void logger_build_send_log_msg(const hbs_log_site *site, int, const char *format, ...) {
    int saved_errno = errno; // a caller may log before it looks at errno
    message message;
    va_list arguments;
    va_start(arguments, format);
    format_message(&message, format, arguments);
    va_end(arguments);

    host_line line;
    add_severity(&line, site->severity);
    host_line_add_escaped(&line, message.text, message.size, host_quotes::plain);
    line.cut = line.cut || message.cut;
    host_sink_write(&log_file, &line);
    delay_as_told();
    errno = saved_errno;
}
