/* libhbs_query: reads the client database of gw_hostbase from any process, without asking the daemon.
 *
 * Every call attaches the segment, read-only, when it is first needed and again when it was made anew;
 * all are safe from any thread and after a fork. A call waits for the database semaphore for at most
 * HOSTBASE_WAIT_MS in all; it copies what it needs and lets go at once. Where nobody else can be
 * inside it looks once and compares; else it reads until two looks agree, because each restart of the
 * daemon leaves one more holder admitted. It follows no link that leaves its pool.
 *
 * While a call holds the semaphore (microseconds, while the caller's buffers are in memory) the signals
 * of its thread are held back, so that a reader that is interrupted, terminated or stopped by a signal
 * never keeps the semaphore. Only SIGKILL and SIGSTOP at that very moment can, and a buffer that cannot be
 * written: the daemon then takes the semaphore over, at its next event or within half a minute.
 * Valid C11 and C++20. */
#ifndef HOSTBASE_QUERY_H
#define HOSTBASE_QUERY_H

#include <stddef.h>
#include <stdint.h>

#include "hbs_db.h"

#ifdef __cplusplus
extern "C" {
#endif

#define HOSTBASE_WAIT_MS 1000

#define HOSTBASE_API __attribute__((visibility("default")))

/* Results. Every failure is negative. */
typedef enum hostbase_result {
    HOSTBASE_OK = 0,
    HOSTBASE_NOT_FOUND = -1,  /* no such client or entry */
    HOSTBASE_NO_SEGMENT = -2, /* segment or semaphore not there: the daemon has never run */
    HOSTBASE_BUSY = -3,       /* the semaphore did not come within HOSTBASE_WAIT_MS */
    HOSTBASE_UNSTABLE = -4,   /* no two looks agreed */
    HOSTBASE_BAD_ARGUMENT = -5,
    HOSTBASE_NO_PERMISSION = -6, /* the segment may not be read or the semaphore not be written */
    HOSTBASE_NO_MEMORY = -7      /* no room for the private copies, or no memory for an attachment */
} hostbase_result;

/* Text of a result, static: one line without a full stop. */
HOSTBASE_API const char *hostbase_strerror(int result);

/* --- one field of the client with a MAC (6 bytes) ------------------------------------------------
 * Each writes its output and returns HOSTBASE_OK, or leaves it untouched and returns a failure.
 * The buffers are the sizes of the record's fields, NUL included. */
HOSTBASE_API int hostbase_get_adapter_type(const uint8_t mac[6], uint32_t *adapter_type); /* HBS_ADAPTER_* */
HOSTBASE_API int hostbase_get_host(const uint8_t mac[6], char host[HBS_HOST_SIZE]);
HOSTBASE_API int hostbase_get_manuf_oui(const uint8_t mac[6], char oui[HBS_OUI_SIZE]);
HOSTBASE_API int hostbase_get_ser_num(const uint8_t mac[6], char serial_number[HBS_SERIAL_SIZE]);
HOSTBASE_API int hostbase_get_prod_class(const uint8_t mac[6], char product_class[HBS_PRODUCT_SIZE]);
HOSTBASE_API int hostbase_get_SSID(const uint8_t mac[6], uint32_t *ssid); /* SSID number, from 1 */

/* --- whole clients --------------------------------------------------------------------------------
 * client [out] is a copy; its next/prev words keep their offsets. An all-zero MAC or address means
 * "none" in a record, so it is never found. */
HOSTBASE_API int hostbase_find_by_mac(const uint8_t mac[6], hbs_client *client);
HOSTBASE_API int hostbase_find_by_ipv4(const uint8_t ipv4[4], hbs_client *client);
/* Matches the global and the link-local address. */
HOSTBASE_API int hostbase_find_by_ipv6(const uint8_t ipv6[16], hbs_client *client);

/* Copies up to `capacity` clients, in list order, into `clients`; *count [out] gets how many there
 * are in the database (it may exceed capacity). capacity HBS_MAX_CLIENTS holds all. After a failure
 * `clients` holds anything, *count what it held. */
HOSTBASE_API int hostbase_get_clients(hbs_client *clients, size_t capacity, size_t *count);

/* --- indices, each in its list order ----------------------------------------------------------------
 * Same rules as hostbase_get_clients; capacities HBS_MAX_*_ENTRIES hold all. */
HOSTBASE_API int hostbase_get_ip_index(hbs_ip_entry *entries, size_t capacity, size_t *count);
HOSTBASE_API int hostbase_get_if_index(hbs_if_entry *entries, size_t capacity, size_t *count);
HOSTBASE_API int hostbase_get_dhcp_index(hbs_ip_entry *entries, size_t capacity, size_t *count);
HOSTBASE_API int hostbase_get_rule_index(hbs_rule_entry *entries, size_t capacity, size_t *count);
HOSTBASE_API int hostbase_get_pri_index(hbs_pri_entry *entries, size_t capacity, size_t *count);

/* Copies the whole segment (HBS_SHM_SIZE bytes) as one agreed look: the six lists belong together,
 * and every link in them has been checked, so that they can be walked without further tests. After a
 * failure *db holds anything. */
HOSTBASE_API int hostbase_snapshot(hbs_db *db);

#ifdef __cplusplus
}
#endif
#endif
