// A test that stands in for what lies around its subject: a trace of every log message and every call,
// in order, each marked when it was made under hbs_list_mutex. For one source file per test program.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <pthread.h>
#include <string>
#include <thread>
#include <vector>

#include <logger.h>

#include "base/state.h"

namespace trace {

inline std::mutex guard;
inline std::vector<std::string> lines;

// Whether any thread holds the lock: it is recursive, so another thread has to try.
inline bool list_is_locked() {
    bool locked = false;
    std::thread([&locked] {
        locked = pthread_mutex_trylock(&hbs_list_mutex) != 0;
        if (!locked)
            pthread_mutex_unlock(&hbs_list_mutex);
    }).join();
    return locked;
}

inline void add(const std::string &text) {
    const std::string line = (list_is_locked() ? "locked " : "") + text;
    const std::lock_guard hold(guard);
    lines.push_back(line);
}

__attribute__((format(printf, 1, 2))) inline std::string format(const char *form, ...) {
    va_list arguments;
    va_start(arguments, form);
    char text[4096];
    (void)vsnprintf(text, sizeof(text), form, arguments);
    va_end(arguments);
    return text;
}

// What was traced since the last call.
inline std::vector<std::string> take() {
    const std::lock_guard hold(guard);
    return std::exchange(lines, {});
}

using list = std::vector<std::string>;

} // namespace trace

extern "C" void logger_register_level_cb(logger_level_cb) {}

extern "C" void logger_build_send_log_msg(const hbs_log_site *site, int options, const char *form, ...) {
    va_list arguments;
    va_start(arguments, form);
    char text[4096];
    (void)vsnprintf(text, sizeof(text), form, arguments);
    va_end(arguments);
    const bool sound = site->module == 6 && site->reserved == 0 && options == 0;
    trace::add(std::string(sound ? "log " : "odd log ") + text);
}
