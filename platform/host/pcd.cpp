// Process controller: there is none on the host; fatal signals still reach the program's handler, and the
// journal shows what the controller would have been told.
#include <csignal>
#include <cstring>
#include <initializer_list>

#include <pcd.h>

#include "host_journal.h"
#include "host_values.h"

namespace {

#if defined(__has_feature)
#define HOST_HAS_FEATURE(feature) __has_feature(feature)
#else
#define HOST_HAS_FEATURE(feature) 0
#endif

// A sanitizer reports fatal signals itself, and better.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || HOST_HAS_FEATURE(address_sanitizer) ||  \
    HOST_HAS_FEATURE(thread_sanitizer)
constexpr bool catches_signals = false;
#else
constexpr bool catches_signals = true;
#endif

// The handler runs once a signal: when it returns, the fault happens again and ends the process.
bool catch_fatal_signals(void (*handler)(int signal_number)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    (void)sigemptyset(&action.sa_mask);
    for (int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
        if (sigaction(number, &action, nullptr) != 0)
            return false;
    return true;
}

} // namespace

int PCD_api_register_exception_handlers(const char *name, void (*handler)(int signal_number)) {
    int result = 0;
    if (host_call_fails("PCD_api_register_exception_handlers", &result))
        return result;
    if (name == nullptr || handler == nullptr)
        return -1;
    if (catches_signals && !catch_fatal_signals(handler))
        return -1;
    host_line line;
    host_line_add(&line, "pcd register ");
    host_line_add_escaped(&line, name, strlen(name), host_quotes::plain);
    host_journal_write(&line);
    return 0;
}

int PCD_api_send_process_ready(void) {
    int result = 0;
    if (host_call_fails("PCD_api_send_process_ready", &result))
        return result;
    host_line line;
    host_line_add(&line, "pcd ready");
    host_journal_write(&line);
    return 0;
}
