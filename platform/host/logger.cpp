// The logger: one line a message in the log file, the severity first.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <strings.h>

#include <logger.h>

#include "host_sink.h"
#include "host_values.h"

namespace {

host_sink log_file = {host_place::log, PTHREAD_MUTEX_INITIALIZER, -1};

constexpr uint32_t longest_delay_ms = 60000;

constexpr struct {
    uint32_t code;
    const char *word;
} severities[] = {{0, "fatal"}, {1, "alert"}, {3, "error"}, {9, "info"}, {15, "debug"}};

void add_severity(host_line *line, uint32_t severity) {
    for (const auto &known : severities) {
        if (known.code == severity) {
            host_line_add_escaped(line, known.word, strlen(known.word), host_quotes::plain);
            host_line_add_escaped(line, " ", 1, host_quotes::plain);
            return;
        }
    }
    host_line_add(line, "%u ", severity);
}

// The highest severity that "log.level" lets through, a word or a number; everything without it. Needs a
// hold.
uint32_t highest_taken() {
    const char *level = host_value("log.level");
    uint32_t number = UINT32_MAX;
    if (level == nullptr || host_text_to_u32(level, &number))
        return number;
    for (const auto &known : severities)
        if (strcasecmp(known.word, level) == 0)
            return known.code;
    return UINT32_MAX;
}

logger_level_cb level_callback; // these two: only inside a hold
uint32_t told_level;

void tell_level() {
    const uint32_t highest = highest_taken();
    if (level_callback != nullptr && highest != told_level)
        level_callback(highest);
    told_level = highest;
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
void pause_for(uint32_t milliseconds) {
    timespec left = {static_cast<time_t>(milliseconds / 1000),
                     static_cast<long>(milliseconds % 1000) * 1000000};
    while (milliseconds > 0 && nanosleep(&left, &left) == -1 && errno == EINTR) {}
}

// What the values say of a message: whether it is taken, and how long that lasts.
bool is_taken(uint32_t severity, uint32_t *delay_ms) {
    host_values_hold hold;
    *delay_ms = 0;
    if (!host_text_to_u32(host_value("log.delay_ms"), delay_ms) || *delay_ms > longest_delay_ms)
        *delay_ms = 0;
    return severity <= highest_taken();
}

} // namespace

void logger_register_level_cb(logger_level_cb callback) {
    {
        host_values_hold hold;
        level_callback = callback;
        told_level = ~highest_taken();
    }
    host_values_on_change(tell_level);
}

void logger_build_send_log_msg(const hbs_log_site *site, int, const char *format, ...) {
    int saved_errno = errno; // a caller may log before it looks at errno
    uint32_t delay_ms = 0;
    if (is_taken(site->severity, &delay_ms)) {
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
        pause_for(delay_ms);
    }
    errno = saved_errno;
}
