#include "linux/router_log.h"

#include <cstdarg>
#include <cstdio>

#include "linux_log.h"

std::vector<std::string> router_logged;

void linux_log(uint32_t, const char *format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    router_logged.emplace_back(text);
}
