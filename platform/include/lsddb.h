/* LAN-side device database: which LAN group a LAN device (a Wi-Fi SSID) belongs to. */
#ifndef HBS_PLATFORM_LSDDB_H
#define HBS_PLATFORM_LSDDB_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

#define LSDDB_KEY_DEVICE 1    /* key type: by device name */
#define LSDDB_RECORD_DEVICE 3 /* record type: device parameters */

typedef struct lsddb_key {
    int32_t type;    /* LSDDB_KEY_DEVICE */
    char device[16]; /* device name; for an SSID its number in decimal */
} lsddb_key;

typedef struct lsddb_params {
    int32_t type;    /* LSDDB_RECORD_DEVICE, set by the caller */
    int32_t group;   /* LAN group from 1; -1 = none */
    int32_t enabled; /* 0 or 1 */
    char bridge[16]; /* bridge device name */
} lsddb_params;

/* Reads the whole database into the library. Returns 0 when it is usable, else an error number. */
int LSDDB_Read(int flags, int scope);

/* Parameters of one device. key [in], params [in/out].
 * Returns 0 when found, -1 when not (params untouched). */
int LSDDB_GetDevParams(const lsddb_key *key, lsddb_params *params);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
