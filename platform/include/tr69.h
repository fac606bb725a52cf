/* TR-069 agent: events about LAN hosts. */
#ifndef HBS_PLATFORM_TR69_H
#define HBS_PLATFORM_TR69_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

#define TR69_EVENT_SIZE 524

/* Hands one event payload (524 bytes, not kept after the call) to the agent. Returns 0, or -1.
 * Effect on the outside: journalled by the host platform, every field in words. */
int quarn_tr69SendEvent(const uint8_t payload[TR69_EVENT_SIZE]);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
