// Log macro: one call at the place where something happens, its format literal in one piece.
#pragma once

#include <logger.h>

// Severity codes that the gateway's logger knows.
enum hbs_severity : unsigned { HBS_FATAL = 0, HBS_ALERT = 1, HBS_ERROR = 3, HBS_INFO = 9, HBS_DEBUG = 15 };

constexpr unsigned HBS_LOG_MODULE = 6;

// The site descriptor is static because the logger keeps its address as the identity of the place.
#define HBS_LOG(severity, ...)                                                                               \
    do {                                                                                                     \
        static constexpr hbs_log_site log_site_ = {severity, HBS_LOG_MODULE, 0};                             \
        logger_build_send_log_msg(&log_site_, 0, __VA_ARGS__);                                               \
    } while (0)
