/* External Ethernet switch behind which the LAN ports sit. */
#ifndef HBS_PLATFORM_EXTSWT_H
#define HBS_PLATFORM_EXTSWT_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

#ifndef EXTSWT_PORTS
#define EXTSWT_PORTS 4 /* an option of the build, at most 255 */
#endif

/* UPCALL: link states of port 1 in states[0] and so on, 0 = down. Called on a thread of the switch
 * library's own, whenever a state changed. */
typedef void (*extswt_link_cb)(const uint32_t states[EXTSWT_PORTS]);

/* Registers the link callback (one per process; a new one replaces the old). Returns 0, or -1. */
int EXTSWT_RegisterLinkStatusCb(extswt_link_cb callback);

/* On which port a MAC (6 bytes) was learned. hit [out] non-zero when found, port [out] 1-based.
 * Returns 0, or -1 when the switch cannot be asked (hit and port are then 0). */
int extSwitchSearchMac(const uint8_t mac[6], uint16_t *hit, uint32_t *port);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
