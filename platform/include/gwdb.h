/* Gateway settings: flap list and extra Wi-Fi (hotspot) interfaces. */
#ifndef HBS_PLATFORM_GWDB_H
#define HBS_PLATFORM_GWDB_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

/* Each getter writes its value and returns 0, or returns non-zero when the value is not available
 * (value untouched). Intervals and the period are seconds; enable is 1 for on. */
int GWDB_FLAPLISTCFG_ENABLE_GET(uint32_t *value);
int GWDB_FLAPLISTCFG_DHCP_INTERVAL_GET(uint32_t *value);
int GWDB_FLAPLISTCFG_WLAN_INTERVAL_GET(uint32_t *value);
int GWDB_FLAPLISTCFG_REPORT_PERIOD_GET(uint32_t *value);

#define GWDB_XWIFI_GROUPS 4
#define GWDB_XWIFI_NAME_SIZE 16
#define GWDB_XWIFI_NAMES 66 /* 66 names of 16 bytes: 1056 bytes a group */

typedef struct gwdb_xwifi_names {
    char name[GWDB_XWIFI_NAMES][GWDB_XWIFI_NAME_SIZE]; /* unused rows are empty */
} gwdb_xwifi_names;

/* The interface names of the enabled extra Wi-Fi networks of a group (0-3). names [out].
 * Returns 0, or non-zero when not available (names untouched). */
int GWDB_XWIFI_GET_ENABLED_IFNAME(int group, gwdb_xwifi_names *names);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
