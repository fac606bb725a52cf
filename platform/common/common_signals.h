// Fatal signals for the program's handler.
#pragma once

// Has SIGSEGV, SIGBUS, SIGFPE, SIGILL and SIGABRT run the handler, once each: when it returns, the fault
// happens again and ends the process. A sanitizer's build leaves them to the sanitizer. Returns whether they
// are caught.
bool common_catch_fatal_signals(void (*handler)(int signal_number));
