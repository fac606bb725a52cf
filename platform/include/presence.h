/* Whether traffic alone says who is present. */
#ifndef HBS_PLATFORM_PRESENCE_H
#define HBS_PLATFORM_PRESENCE_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

/* Whether a device that answers or sends is on line and one that neither answers nor sends is not. Returns 1
 * or 0; 0 leaves presence to leases, associations, links and timers. The same for the life of the process. */
int PRESENCE_ByTraffic(void);

/* Who answers no question for its addresses and has sent nothing for so many seconds is not there. */
#define PRESENCE_SILENT_SECONDS 30

/* Whether it is sure that no frame of a device has been heard for PRESENCE_SILENT_SECONDS. mac [in] 6 bytes.
 * Returns 1 or 0; 0 when that cannot be told. */
int PRESENCE_IsSilent(const uint8_t mac[6]);

/* Whether an address of a device is confirmed, or being asked for just now. mac [in] 6 bytes. Returns 1 or 0;
 * 1 when that cannot be told. */
int PRESENCE_IsAnswering(const uint8_t mac[6]);

/* Waits for the answer of a switch that was asked where a device is and could not tell at once. For callers
 * that hold no lock. mac [in] 6 bytes. Returns 1 when the question may be asked again now, 0 when no switch
 * answers late here, -1 when it could not be asked. */
int PRESENCE_Await(const uint8_t mac[6]);

/* A bridge of the kernel's has learned a device on one of its ports. mac [in] 6 bytes; ifindex: the kernel's,
 * of the port. Told in the order of the kernel's messages, before what the device says next is looked at. */
void PRESENCE_Learned(const uint8_t mac[6], int ifindex);

/* Has a device asked for an address of its own. network: 0 for the first; family: AF_INET or AF_INET6;
 * address [in] 4 or 16 bytes. Waits for nothing: an answer is an event of the neighbour table. */
void PRESENCE_Ask(uint32_t network, int family, const uint8_t *address);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
