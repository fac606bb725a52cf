/* SNMP agent library: what it offers to the process that loads it. What the agent library expects of
 * the process (the upcalls: USER_* callbacks, snmp_* objects, the reader/writer lock) is declared by
 * the export headers of the daemon, not here. */
#ifndef HBS_PLATFORM_SNMPA_H
#define HBS_PLATFORM_SNMPA_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

/* Name of the agent, NUL-terminated; used in the lock's time-out messages. */
extern const char SnmpaName[]; /* NOLINT(bugprone-dynamic-static-initializers): a constant */

/* An object identifier: arc count and arcs. */
typedef struct snmpa_oid {
    uint32_t count;
    uint32_t *arcs;
} snmpa_oid;

/* View storage: adds or changes (mode 0 or 1) the view table; empties it; writes it out.
 * Each returns 0, or -1. Journalled by the host platform. */
int SNMP_NV_View_2275_Add_Mod(int modify);
int SNMP_NV_Clean(void);
int SNMP_NV_Doit(void);

/* Frees the arcs of an object identifier and sets its count to 0. */
void Clean_Obj_ID(snmpa_oid *oid);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
