/* Production data: what the factory wrote. */
#ifndef HBS_PLATFORM_PRODDB_H
#define HBS_PLATFORM_PRODDB_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

/* Opens the production data. Returns 0, or -1 when it cannot be opened. */
int ProductionDb_RetrieveAccess(void);

/* The cable modem's MAC address into mac (6 bytes). Returns 0, or -1 (mac untouched). */
int ProdDb_GetCmMacAddress(uint8_t mac[6]);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
