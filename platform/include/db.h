/* Gateway configuration items by number. */
#ifndef HBS_PLATFORM_DB_H
#define HBS_PLATFORM_DB_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

#define DB_ITEM_BASE_MAC 70      /* 6 bytes: the gateway's base MAC address */
#define DB_ITEM_WIFI_RPC_MODE 72 /* 1 byte: opaque mode value of the Wi-Fi side */
#define DB_ITEM_EROUTER_MAC 110  /* 6 bytes */
#define DB_ITEM_MTA_MAC 197      /* 6 bytes */

/* Opens the configuration for this process. Returns 0, or -1. */
int DB_RetrieveAccess(void);

/* Bytes of an item into buffer (6 for the MAC items). Returns 0, or -1 (buffer untouched). */
int DB_GetArray(int id, uint8_t *buffer);

/* Value of a one-byte item; 0 when the item is not set. */
uint8_t DB_GetByte(int id);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
