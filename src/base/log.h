// Log macro: one call at the place where something happens, its format literal in one piece.
#pragma once

#include <cstdint>

#include <logger.h>

// Severity codes that the gateway's logger knows.
enum hbs_severity : unsigned { HBS_FATAL = 0, HBS_ALERT = 1, HBS_ERROR = 3, HBS_INFO = 9, HBS_DEBUG = 15 };

constexpr unsigned HBS_LOG_MODULE = 6;

// The highest severity that the logger takes; everything until it says otherwise. Read and set by the
// compiler's own atomic operations: the standard header for them would be nearly all that is compiled of most
// files.
extern uint32_t hbs_log_highest;

// Whether anybody takes what is logged with a severity.
[[gnu::always_inline]] inline bool hbs_log_takes(uint32_t severity) {
    return severity <= __atomic_load_n(&hbs_log_highest, __ATOMIC_RELAXED);
}

// Lets the logger say what it takes, now and on each change. Called once, before anything is logged.
void hbs_log_init();

// The site descriptor is static because the logger keeps its address as the identity of the place. The
// arguments of a message that nobody takes are not computed, but for errors, which are too rare to ask first.
#define HBS_LOG(code, ...)                                                                                   \
    do {                                                                                                     \
        static constexpr hbs_log_site log_site_ = {code, HBS_LOG_MODULE, 0};                                 \
        if (code <= HBS_ERROR || hbs_log_takes(code))                                                        \
            logger_build_send_log_msg(&log_site_, 0, __VA_ARGS__);                                           \
    } while (0)
