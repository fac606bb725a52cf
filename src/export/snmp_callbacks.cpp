// Callbacks and objects of the SNMP agent library.
#include "export/snmp_callbacks.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "export/rwlock.h"

namespace {

constexpr int REFUSED = 5;
constexpr uint32_t IPV4_OCTETS = 6;  // address, port
constexpr uint32_t IPV6_OCTETS = 18; // address, port

uint32_t object_id_arcs[SNMP_OBJECT_ID_ARCS];

// The one pending timer; no callback = none.
uint32_t timer_deadline; // as USER_now() counts
snmpa_timer_cb timer_callback;

bool is_domain(const snmpa_oid *oid, const uint32_t *arcs, uint32_t count) {
    return oid->count == count && std::equal(arcs, arcs + count, oid->arcs);
}

int octets_to_ipv4(snmpa_address *out, const snmpa_octets *octets) {
    if (octets->length < IPV4_OCTETS)
        return -1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    memcpy(&address.sin_addr, octets->bytes, sizeof address.sin_addr);
    memcpy(&address.sin_port, octets->bytes + sizeof address.sin_addr, sizeof address.sin_port);
    memcpy(out, &address, sizeof address);
    return 0;
}

int octets_to_ipv6(snmpa_address *out, const snmpa_octets *octets) {
    if (octets->length < IPV6_OCTETS)
        return -1;
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    memcpy(&address.sin6_addr, octets->bytes, sizeof address.sin6_addr);
    memcpy(&address.sin6_port, octets->bytes + sizeof address.sin6_addr, sizeof address.sin6_port);
    memcpy(out, &address, sizeof address);
    return 0;
}

int load(snmpa_oid *domain, const uint32_t *arcs, uint32_t count, snmpa_octets *octets, const uint8_t *bytes,
         uint32_t length) {
    if (SNMPA_LoadObjID(domain, arcs, count) != 0)
        return -1;
    if (SNMPA_LoadOctets(octets, bytes, length) != 0) {
        Clean_Obj_ID(domain);
        return -1;
    }
    return 0;
}

void print_called(const char *name) {
    (void)printf("Called %s\n", name);
}

} // namespace

static_assert(sizeof(snmpa_address) == 28, "the library copies 28 bytes for each transport address");
static_assert(sizeof(snmpa_stats) == 172);

extern "C" {

char snmp_sysDescr[SNMP_TEXT_SIZE];
char snmp_sysContact[SNMP_TEXT_SIZE];
char snmp_sysLocation[SNMP_TEXT_SIZE];
snmpa_oid snmp_sysObjectID = {SNMP_OBJECT_ID_ARCS, object_id_arcs};
snmpa_stats snmp_stats;
snmpa_alloc snmp_allocs = {&snmp_allocs, &snmp_allocs, nullptr, 0, nullptr, 0};
snmp_mib_node mib_root_node;
const uint32_t udpdomain[UDP_DOMAIN_ARCS] = {1, 3, 6, 1, 6, 1, 1};
const uint32_t udptransportdomainV4[UDP_TRANSPORT_DOMAIN_ARCS] = {1, 3, 6, 1, 2, 1, 100, 1, 1};
const uint32_t udptransportdomainV6[UDP_TRANSPORT_DOMAIN_ARCS] = {1, 3, 6, 1, 2, 1, 100, 1, 2};

// --- memory ---

void *USER_malloc(size_t size) {
    return malloc(size);
}

void USER_free(void *memory) {
    free(memory);
}

void USER_release_private(const snmpa_object *object) {
    free(object->private_data);
}

int USER_user_get_encode_buffer(void *, uint32_t size, snmpa_encode_buffer *buffer) {
    uint8_t *block = static_cast<uint8_t *>(malloc(size));
    if (block == nullptr)
        return 1;
    buffer->flag = 1;
    buffer->start = block;
    buffer->next = block;
    buffer->remaining = size;
    return 0;
}

void USER_free_dump() {
    (void)puts("USER_free_dump - enter");
    (void)pthread_mutex_lock(&listlock);
    for (const snmpa_alloc *at = snmp_allocs.next; at != &snmp_allocs; at = at->next)
        (void)printf("SNMP MEM DUMP : have alloc at 0x%08x size %d from %s, line %d\n",
                     static_cast<unsigned>(reinterpret_cast<uintptr_t>(at->address)),
                     static_cast<int>(at->size), at->file, at->line);
    (void)pthread_mutex_unlock(&listlock);
    (void)puts("USER_free_dump - exit");
}

// --- time ---

uint32_t USER_now() {
    timeval now{};
    (void)gettimeofday(&now, nullptr);
    return static_cast<uint32_t>(now.tv_sec) * 1000u + static_cast<uint32_t>(now.tv_usec / 1000);
}

void USER_Call_Timer(uint32_t milliseconds, snmpa_timer_cb callback) {
    timer_deadline = USER_now() + milliseconds;
    timer_callback = callback;
}

int USER_Process_Timeout(timeval *wait) {
    *wait = {1, 0};
    if (timer_callback == nullptr)
        return 1;
    const int32_t remaining = static_cast<int32_t>(timer_deadline - USER_now()); // right also across the wrap
    if (remaining < 1) {
        const snmpa_timer_cb due = timer_callback;
        timer_callback = nullptr; // first: the callback may set the timer again
        due(remaining);
    } else if (remaining <= 999) {
        wait->tv_sec = 0;
        wait->tv_usec = suseconds_t{remaining % 1000} * 1000;
    }
    return 1;
}

// --- addresses ---

int USER_taddress_to_snmpaddr(snmpa_address *out, const snmpa_oid *domain, const snmpa_octets *octets) {
    if (is_domain(domain, udpdomain, UDP_DOMAIN_ARCS) ||
        is_domain(domain, udptransportdomainV4, UDP_TRANSPORT_DOMAIN_ARCS))
        return octets_to_ipv4(out, octets);
    if (is_domain(domain, udptransportdomainV6, UDP_TRANSPORT_DOMAIN_ARCS))
        return octets_to_ipv6(out, octets);
    return -1;
}

int USER_snmpaddr_to_taddress(const snmpa_address *address, snmpa_oid *domain, snmpa_octets *octets) {
    uint8_t bytes[IPV6_OCTETS];
    if (address->v4.sin_family == AF_INET) {
        memcpy(bytes, &address->v4.sin_addr, 4);
        memcpy(bytes + 4, &address->v4.sin_port, 2);
        return load(domain, udpdomain, UDP_DOMAIN_ARCS, octets, bytes, IPV4_OCTETS);
    }
    if (address->v6.sin6_family == AF_INET6) {
        memcpy(bytes, &address->v6.sin6_addr, 16);
        memcpy(bytes + 16, &address->v6.sin6_port, 2);
        return load(domain, udptransportdomainV6, UDP_TRANSPORT_DOMAIN_ARCS, octets, bytes, IPV6_OCTETS);
    }
    return -1;
}

// --- requests ---

int USER_validate_community(snmpa_packet *packet, const snmpa_address *source,
                            const snmpa_address *destination) {
    packet->source = *source;
    packet->destination = *destination;
    packet->view_index = -1;
    packet->error = 0;
    return 0;
}

int USER_nv_view_op(int operation, int kind) {
    switch (kind) {
    case 0:
        if (operation == 0 || operation == 1)
            return SNMP_NV_View_2275_Add_Mod(0);
        return operation == 2 ? SNMP_NV_View_2275_Add_Mod(1) : 0;
    case 1:
    case 3:
        return SNMP_NV_Clean();
    case 4:
        return SNMP_NV_Doit();
    default:
        return 0;
    }
}

int USER_validate_address() {
    return 0;
}

int USER_validate_set_pdu() {
    return 0;
}

int USER_user_pre_set() {
    return 0;
}

int USER_user_post_set() {
    return 0;
}

uint32_t USER_get_sysuptime() {
    return 0;
}

int USER_ax_conn_entry() {
    return 0;
}

int USER_ax_get_connid() {
    return 0;
}

int sys_init() {
    return 0;
}

int USER_ax_ma_ac_add() {
    return REFUSED;
}

int USER_ax_ma_ac_remove() {
    return REFUSED;
}

void USER_Trace_Input() {}

void USER_send_proxy_pkt() {}

void USER_set_users_engine() {}

void USER_ax_ma_ac_clean() {}

int USER_ax_find_mib() {
    print_called("USER_ax_find_mib");
    return 0;
}

int NV_Op() {
    print_called("NV_Op");
    return 0;
}

int USER_ax_transport_string() {
    print_called("USER_ax_transport_string");
    return 1;
}

int snmpvars_init() {
    memset(&snmp_stats, 0, sizeof snmp_stats);
    return 0;
}

} // extern "C"
