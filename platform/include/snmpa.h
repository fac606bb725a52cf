/* SNMP agent library: its structures, and what it offers to the process that loads it. What the agent
 * library expects of the process (the upcalls: USER_* callbacks, snmp_* objects, the reader/writer lock) is
 * declared by the headers in the daemon's src/export, with these structures. */
#ifndef HBS_PLATFORM_SNMPA_H
#define HBS_PLATFORM_SNMPA_H

#include <netinet/in.h>
#include <stdint.h>
#include <sys/socket.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

/* --- structures ------------------------------------------------------------------------------------- */

/* An object identifier: arc count and arcs. */
typedef struct snmpa_oid {
    uint32_t count;
    uint32_t *arcs;
} snmpa_oid;

/* An octet string. */
typedef struct snmpa_octets {
    uint32_t length;
    uint8_t *bytes;
} snmpa_octets;

/* A transport address, 28 bytes; an IPv4 address uses the first 16. Network byte order. */
typedef union snmpa_address {
    struct sockaddr_in v4;
    struct sockaddr_in6 v6;
} snmpa_address;

/* What the callbacks touch of a packet descriptor. */
typedef struct snmpa_packet {
    snmpa_address source;
    snmpa_address destination;
    int32_t view_index; /* -1 = the whole tree */
    int32_t error;      /* 0 = none */
} snmpa_packet;

/* A buffer that a packet is encoded into. */
typedef struct snmpa_encode_buffer {
    int32_t flag; /* 1 = the block was allocated by the process */
    uint8_t *start;
    uint8_t *next;      /* where the next byte goes */
    uint32_t remaining; /* bytes from there on */
} snmpa_encode_buffer;

/* An object with private data of the process: its third word. */
typedef struct snmpa_object {
    void *word[2];
    void *private_data;
} snmpa_object;

/* One noted allocation, on a circular list in both directions; the list's head is an element without
 * figures. */
typedef struct snmpa_alloc {
    struct snmpa_alloc *next;
    struct snmpa_alloc *prev;
    void *address;
    uint32_t size;    /* bytes */
    const char *file; /* source file and line that allocated */
    int32_t line;
} snmpa_alloc;

/* Statistics of the agent, 172 bytes. */
#define SNMPA_STATS 43
typedef struct snmpa_stats {
    uint32_t counter[SNMPA_STATS];
} snmpa_stats;

/* UPCALL: what runs when the pending timer is due; late_ms is how far off the deadline is, 0 or negative. */
typedef void (*snmpa_timer_cb)(int32_t late_ms);

/* --- downcalls -------------------------------------------------------------------------------------- */

/* Name of the agent, NUL-terminated; used in the lock's time-out messages. */
extern const char SnmpaName[]; /* NOLINT(bugprone-dynamic-static-initializers): a constant */

/* View storage: adds or changes (modify 0 or 1) the view table; empties it; writes it out.
 * Each returns 0, or -1. Journalled by the host platform. */
int SNMP_NV_View_2275_Add_Mod(int modify);
int SNMP_NV_Clean(void);
int SNMP_NV_Doit(void);

/* Loads copies of arcs and of bytes into an object identifier and an octet string; what these held is not
 * freed. Each returns 0, or -1 when there is no memory (count or length is then 0). */
int SNMPA_LoadObjID(snmpa_oid *oid, const uint32_t *arcs, uint32_t count);
int SNMPA_LoadOctets(snmpa_octets *octets, const uint8_t *bytes, uint32_t length);

/* Free what was loaded and set the count or length to 0. */
void Clean_Obj_ID(snmpa_oid *oid);
void SNMPA_CleanOctets(snmpa_octets *octets);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
