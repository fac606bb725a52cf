/* Router database: one entry per LAN network of the gateway. */
#ifndef HBS_PLATFORM_RNDDB_H
#define HBS_PLATFORM_RNDDB_H

#include <stdint.h>

#pragma GCC visibility push(default) /* whatever the library is compiled with */

#ifdef __cplusplus
extern "C" {
#endif

#define RNDDB_MAX_ENTRIES 8
#define RNDDB_VENDOR_SIZE 32

/* One router entry. Addresses are bytes in network order. */
typedef struct rnddb_params {
    int32_t rndidx;         /* entry number from 1; -1 = preset, nothing read yet */
    char ifname[16];        /* kernel interface of the network, NUL-terminated */
    uint8_t ipv4[4];        /* primary address; 0.0.0.0 = none */
    uint32_t prefix_length; /* of the primary address, 0-32 */
    uint8_t pool_start[4];  /* first address of the DHCPv4 pool */
    uint8_t pool_end[4];    /* last address of the DHCPv4 pool */
    uint8_t ipv6_enabled;   /* 0 or 1 */
    uint8_t reserved[3];
    uint8_t ipv6_prefix[8]; /* the network's 64-bit prefix */
    uint32_t lan_number;    /* n of the interface name "l2sd0.n" */
    uint32_t lease_time;    /* seconds */
    uint32_t rebind_time;   /* seconds */
    uint32_t max_leases;
    uint32_t decline_limit;
    uint32_t offer_window;
    uint32_t renew_interval; /* seconds */
    char vendor[RNDDB_VENDOR_SIZE];
} rnddb_params;

/* An opaque position of a walk; zero it before RNDDB_Get1stHandleParams. */
typedef struct rnddb_handle {
    int32_t position;
} rnddb_handle;

/* Reads the whole database into the library (flags 0, 1 as every user of the library passes them).
 * Returns 0 when it is usable, else an error number; a failed read may be tried again. */
int RNDDB_Read(int flags, int scope);

/* Walks the entries in ascending rndidx. handle [in/out], params [out].
 * Returns 0 and fills params (fields that the entry does not set keep the caller's preset), 1 at the end,
 * -1 on an error (params untouched in both cases). */
int RNDDB_Get1stHandleParams(rnddb_handle *handle, rnddb_params *params);
int RNDDB_GetNextHandleParams(rnddb_handle *handle, rnddb_params *params);

/* Text of address number `which` (1 = primary) of an entry, "a.b.c.d/p", into buffer.
 * size in bytes, NUL included. Returns 0, or -1 when there is none or it does not fit. */
int RNDDB_GetAddress(const rnddb_params *entry, int which, char *buffer, uint32_t size);

/* Whether an address lies in one of the entry's subnets.
 * family AF_INET or AF_INET6; address [in] 4 or 16 bytes, network order;
 * prefix_length [out] of the subnet that matched, may be null.
 * Returns 0 when it lies in one, -1 when not. */
int RNDDB_GetSubnetForAddress(const rnddb_params *entry, int family, const uint8_t *address,
                              uint32_t *prefix_length);

/* A truth value of entry `rndidx` by key ("Routed": 1 routed, 0 bridged).
 * value [out] 0 or 1. Returns 0, or -1 when entry or key is unknown (value untouched). */
int RNDDB_boolGetWithKeyAndIndex(int rndidx, const char *key, int *value);

/* An IPv4 address of entry `rndidx` by key: "address_1" (primary address), "dhcpv4startaddress",
 * "dhcpv4endaddress". address [out] 4 bytes, network order.
 * Returns 0, or -1 when entry or key is unknown (address untouched). */
int RNDDB_inet4AddrGetWithKeyAndIndex(const char *key, int rndidx, uint8_t address[4]);

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop
#endif
