/* Non-volatile memory of the board. */
#ifndef HBS_PLATFORM_NVM_H
#define HBS_PLATFORM_NVM_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

#define NVM_BYTE_BOARD_MODE 60 /* opaque mode value: 7, 8, 9 and 24 have meanings to the daemon */

/* Opens the memory for this process. Returns 0, or -1. */
int NVM_RetrieveAccess(void);

/* Value of a byte item; 0 when the item is not set. */
uint8_t NVM_GetByte(int id);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
