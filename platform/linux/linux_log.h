// Messages of the platform itself, through the same logger as the daemon's.
#pragma once

#include <cstdint>

// severity: as of the logger (0, 1, 3, 9 or 15).
void linux_log(uint32_t severity, const char *format, ...) __attribute__((format(printf, 2, 3)));
