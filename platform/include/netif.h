/* The roles of the kernel's interfaces. */
#ifndef HBS_PLATFORM_NETIF_H
#define HBS_PLATFORM_NETIF_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

#define NETIF_NAME_SIZE 16

/* Whether a kernel interface leads outward (WAN, cable modem, telephone adapter): neighbours there are never
 * clients. Returns 1 or 0. Called for each neighbour message. */
int NETIF_IsOutward(int ifindex);

/* Name of the kernel interface of LAN network `network` (from 0) into name. Returns 0, or -1 when there is
 * none (name untouched). */
int NETIF_GetLanName(uint32_t network, char name[NETIF_NAME_SIZE]);

/* Kernel index of an interface by its name. Returns 0 when there is none. Called while the database is
 * locked: it waits for nothing. */
int NETIF_GetIndex(const char *name);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
