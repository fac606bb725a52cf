/* Internal layer-2 switch: its table of learned unicast addresses. */
#ifndef HBS_PLATFORM_L2SWITCH_H
#define HBS_PLATFORM_L2SWITCH_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

#define L2SWITCH_MAX_MACS 256

typedef struct l2switch_entry {
    uint8_t mac[6];
    uint8_t reserved[2];
    uint32_t port_mask; /* one bit per port */
    uint32_t age;       /* seconds since last seen */
    uint32_t flags;
} l2switch_entry; /* 20 bytes */

typedef struct l2switch_table {
    uint16_t count; /* rows in use, at most L2SWITCH_MAX_MACS */
    uint16_t reserved;
    l2switch_entry entry[L2SWITCH_MAX_MACS];
} l2switch_table;

/* The entries of the unicast table for a MAC in text form ("%02x:..."); table [out].
 * Other addresses may be listed too. Returns 0 or more, or a negative value when the switch cannot
 * be asked (table untouched). */
int L2SWITCH_GetUcastMacs(l2switch_table *table, const char *mac_text);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
