// What the SNMP agent library binds to in the process that loads it: callbacks and objects, C linkage,
// exported from the executable. The daemon serves no MIB of its own through them: allocation, time, timer,
// address conversion and communities work, the rest are stubs. They run on the library's threads and take no
// lock, except for the memory dump.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/time.h>

#include <snmpa.h>

constexpr int SNMP_TEXT_SIZE = 255;
constexpr uint32_t SNMP_OBJECT_ID_ARCS = 14;
constexpr uint32_t UDP_DOMAIN_ARCS = 7;
constexpr uint32_t UDP_TRANSPORT_DOMAIN_ARCS = 9;

// Root of the agent's MIB tree.
struct snmp_mib_node {
    void *word[3];
};

#pragma GCC visibility push(default)
extern "C" {

// --- objects ---
extern char snmp_sysDescr[SNMP_TEXT_SIZE];
extern char snmp_sysContact[SNMP_TEXT_SIZE];
extern char snmp_sysLocation[SNMP_TEXT_SIZE];
extern snmpa_oid snmp_sysObjectID; // points to a buffer of SNMP_OBJECT_ID_ARCS arcs
extern snmpa_stats snmp_stats;
extern snmpa_alloc snmp_allocs; // head of the list of noted allocations, guarded by listlock
extern snmp_mib_node mib_root_node;
extern const uint32_t udpdomain[UDP_DOMAIN_ARCS];                      // 1.3.6.1.6.1.1
extern const uint32_t udptransportdomainV4[UDP_TRANSPORT_DOMAIN_ARCS]; // 1.3.6.1.2.1.100.1.1
extern const uint32_t udptransportdomainV6[UDP_TRANSPORT_DOMAIN_ARCS]; // 1.3.6.1.2.1.100.1.2

// --- memory ---
void *USER_malloc(size_t size);
void USER_free(void *memory);
void USER_release_private(const snmpa_object *object); // frees the object's private data

// Gives an encode buffer a block of `size` bytes. Returns 0, or 1 when there is no memory (buffer untouched).
int USER_user_get_encode_buffer(void *context, uint32_t size, snmpa_encode_buffer *buffer);

// Prints the list of noted allocations on standard output. An address is cut to its low 32 bits.
void USER_free_dump();

// --- time ---
uint32_t USER_now(); // milliseconds of the wall clock, modulo 2^32

// Sets the one timer, `milliseconds` from now; it replaces the one that was pending.
void USER_Call_Timer(uint32_t milliseconds, snmpa_timer_cb callback);

// Runs the timer when it is due, and says how long to wait for the next call of this: wait becomes the time
// left when that is under a second, else one second. Returns 1.
int USER_Process_Timeout(timeval *wait);

// --- addresses ---
// Transport domain and octets (address, then port, network order) to a socket address: 16 bytes of out are
// written for IPv4, 28 for IPv6. Returns 0, or -1 for another domain and for too few octets.
int USER_taddress_to_snmpaddr(snmpa_address *out, const snmpa_oid *domain, const snmpa_octets *octets);

// The other way; the caller frees domain and octets as the library does. Returns 0, or -1 for another family
// and when there is no memory (nothing is then left to free).
int USER_snmpaddr_to_taddress(const snmpa_address *address, snmpa_oid *domain, snmpa_octets *octets);

// --- requests ---
// Accepts every community: notes both addresses in the packet, view -1, error 0. Returns 0.
int USER_validate_community(snmpa_packet *packet, const snmpa_address *source,
                            const snmpa_address *destination);

// A request for the view storage. kind 0: operation 0 or 1 adds, 2 modifies; kind 1 or 3 empties; kind 4
// writes. Returns what the library says, 0 for anything else.
int USER_nv_view_op(int operation, int kind);

// Stubs that agree: 0.
int USER_validate_address();
int USER_validate_set_pdu();
int USER_user_pre_set();
int USER_user_post_set();
uint32_t USER_get_sysuptime();
int USER_ax_conn_entry();
int USER_ax_get_connid();
int sys_init();

// Stubs that refuse: 5.
int USER_ax_ma_ac_add();
int USER_ax_ma_ac_remove();

// Stubs without an effect.
void USER_Trace_Input();
void USER_send_proxy_pkt();
void USER_set_users_engine();
void USER_ax_ma_ac_clean();

// Stubs that print their name on standard output: 0, 0 and 1.
int USER_ax_find_mib();
int NV_Op();
int USER_ax_transport_string();

// Clears snmp_stats. Returns 0.
int snmpvars_init();
}
#pragma GCC visibility pop
