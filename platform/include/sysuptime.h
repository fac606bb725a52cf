/* System uptime. */
#ifndef HBS_PLATFORM_SYSUPTIME_H
#define HBS_PLATFORM_SYSUPTIME_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

/* Seconds since the gateway started into seconds. Returns 0, or -1 (seconds untouched). */
int MAIN_getSysUpTime(uint32_t *seconds);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
