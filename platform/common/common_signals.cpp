#include "common_signals.h"

#include <csignal>
#include <initializer_list>

namespace {

#if defined(__has_feature)
#define COMMON_HAS_FEATURE(feature) __has_feature(feature)
#else
#define COMMON_HAS_FEATURE(feature) 0
#endif

// A sanitizer reports fatal signals itself, and better.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) ||                                         \
    COMMON_HAS_FEATURE(address_sanitizer) || COMMON_HAS_FEATURE(thread_sanitizer)
constexpr bool catches_signals = false;
#else
constexpr bool catches_signals = true;
#endif

} // namespace

bool common_catch_fatal_signals(void (*handler)(int signal_number)) {
    if (!catches_signals)
        return true;
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    (void)sigemptyset(&action.sa_mask);
    for (int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT})
        if (sigaction(number, &action, nullptr) != 0)
            return false;
    return true;
}
