// The logger: one line a message in the log file, the severity first.
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <strings.h>

#include <logger.h>

#include "common_message.h"
#include "host_sink.h"
#include "host_values.h"

namespace {

host_sink log_file = {host_place::log, host_place_was_changed, PTHREAD_MUTEX_INITIALIZER, -1};

constexpr uint32_t longest_delay_ms = 60000;

constexpr struct {
    uint32_t code;
    const char *word;
} severities[] = {{0, "fatal"}, {1, "alert"}, {3, "error"}, {9, "info"}, {15, "debug"}};

void add_severity(common_line *line, uint32_t severity) {
    for (const auto &known : severities) {
        if (known.code == severity) {
            common_line_add_text(line, known.word);
            common_line_add_text(line, " ");
            return;
        }
    }
    common_line_add(line, "%u ", severity);
}

// The highest severity that "log.level" lets through, a word or a number; everything without it. Needs a
// hold.
uint32_t highest_taken() {
    const char *level = host_value("log.level");
    uint32_t number = UINT32_MAX;
    if (level == nullptr || common_text_to_u32(level, &number))
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

// A logger that takes its time, as a busy one does.
void pause_for(uint32_t milliseconds) {
    timespec left = {static_cast<time_t>(milliseconds / 1000),
                     static_cast<long>(milliseconds % 1000) * 1000000};
    while (milliseconds > 0 && nanosleep(&left, &left) == -1 && errno == EINTR) {}
}

// What the values say of messages; only inside a hold.
struct {
    uint32_t edition; // of the values; 0 = none yet
    uint32_t highest;
    uint32_t delay_ms;
} settings;

void read_settings() {
    settings.edition = host_values_edition();
    settings.highest = highest_taken();
    settings.delay_ms = 0;
    if (!common_text_to_u32(host_value("log.delay_ms"), &settings.delay_ms) ||
        settings.delay_ms > longest_delay_ms)
        settings.delay_ms = 0;
}

// Whether a message is taken, and how long that lasts.
bool is_taken(uint32_t severity, uint32_t *delay_ms) {
    host_values_hold hold;
    if (settings.edition != host_values_edition())
        read_settings();
    *delay_ms = settings.delay_ms;
    return severity <= settings.highest;
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
        common_line line;
        add_severity(&line, site->severity);
        va_list arguments;
        va_start(arguments, format);
        common_line_add_message(&line, format, arguments);
        va_end(arguments);
        host_sink_write(&log_file, &line);
        pause_for(delay_ms);
    }
    errno = saved_errno;
}
