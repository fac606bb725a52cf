// A small SNMP agent library: binds to the callbacks, objects and lock of the process that it is loaded into,
// and calls them when it is told to. Each line written to its FIFO names one exercise; what came of it is a
// line of the journal.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <snmpa.h>

#include "export/rwlock.h"
#include "export/snmp_callbacks.h"
#include "host_journal.h"

namespace {

constexpr char default_fifo[] = "/var/lib/hbs-host/agent";

void add_octets(common_line *line, const uint8_t *bytes, size_t count) {
    for (size_t i = 0; i < count; i++)
        common_line_add(line, "%02x", bytes[i]);
}

void add_arcs(common_line *line, const uint32_t *arcs, uint32_t count) {
    for (uint32_t i = 0; i < count; i++)
        common_line_add(line, "%s%u", i == 0 ? "" : ".", arcs[i]);
}

template <size_t Size> bool all_zero(const char (&bytes)[Size]) {
    for (char byte : bytes)
        if (byte != 0)
            return false;
    return true;
}

void objects(common_line *line) {
    bool empty_texts = all_zero(snmp_sysDescr) && all_zero(snmp_sysContact) && all_zero(snmp_sysLocation);
    common_line_add(line, "texts=%s object-id=", empty_texts ? "empty" : "set");
    add_arcs(line, snmp_sysObjectID.arcs, snmp_sysObjectID.count);
    bool no_allocs = snmp_allocs.next == &snmp_allocs && snmp_allocs.prev == &snmp_allocs;
    common_line_add(line, " allocs=%s root=%s", no_allocs ? "empty" : "set",
                    mib_root_node.word[0] == nullptr ? "none" : "set");
    common_line_add(line, " udp=");
    add_arcs(line, udpdomain, UDP_DOMAIN_ARCS);
    common_line_add(line, " v4=");
    add_arcs(line, udptransportdomainV4, UDP_TRANSPORT_DOMAIN_ARCS);
    common_line_add(line, " v6=");
    add_arcs(line, udptransportdomainV6, UDP_TRANSPORT_DOMAIN_ARCS);
}

void stats(common_line *line) {
    snmp_stats.counter[0] = 1;
    snmp_stats.counter[SNMPA_STATS - 1] = 2;
    common_line_add(line, "init=%d", snmpvars_init());
    common_line_add(line, " first=%u last=%u", snmp_stats.counter[0], snmp_stats.counter[SNMPA_STATS - 1]);
}

void memory(common_line *line) {
    void *block = USER_malloc(100);
    common_line_add(line, "malloc=%s", block != nullptr ? "ok" : "none");
    USER_free(block);
    snmpa_object object = {{nullptr, nullptr}, USER_malloc(16)};
    USER_release_private(&object);
    snmpa_encode_buffer buffer = {};
    common_line_add(line, " buffer=%d", USER_user_get_encode_buffer(nullptr, 300, &buffer));
    common_line_add(line, " flag=%d size=%u next=%s", buffer.flag, buffer.remaining,
                    buffer.start != nullptr && buffer.next == buffer.start ? "start" : "elsewhere");
    USER_free(buffer.start);
}

// Goes to standard output, between the lines that the dump prints at its start and end.
void dump(common_line *line) {
    snmpa_alloc note = {&snmp_allocs, &snmp_allocs, nullptr, 24, "agent.cpp", 7};
    memset(&note.address, 0x11, sizeof note.address);
    (void)pthread_mutex_lock(&listlock);
    snmp_allocs.next = snmp_allocs.prev = &note;
    (void)pthread_mutex_unlock(&listlock);
    USER_free_dump();
    (void)pthread_mutex_lock(&listlock);
    snmp_allocs.next = snmp_allocs.prev = &snmp_allocs;
    (void)pthread_mutex_unlock(&listlock);
    common_line_add(line, "printed");
}

void now(common_line *line) {
    timeval own = {};
    (void)gettimeofday(&own, nullptr);
    uint32_t milliseconds =
        static_cast<uint32_t>(own.tv_sec) * 1000u + static_cast<uint32_t>(own.tv_usec / 1000);
    common_line_add(line, "clock=%s", USER_now() - milliseconds < 1000 ? "right" : "wrong");
}

int timer_calls;

void count_timer(int32_t) {
    timer_calls++;
}

void timer(common_line *line) {
    timeval wait = {};
    USER_Call_Timer(5000, count_timer);
    (void)USER_Process_Timeout(&wait);
    common_line_add(line, "far=%ld", static_cast<long>(wait.tv_sec));
    USER_Call_Timer(500, count_timer);
    (void)USER_Process_Timeout(&wait);
    common_line_add(line, " near=%ld", static_cast<long>(wait.tv_sec));
    timer_calls = 0;
    USER_Call_Timer(0, count_timer);
    int result = USER_Process_Timeout(&wait);
    (void)USER_Process_Timeout(&wait);
    common_line_add(line, " result=%d calls=%d", result, timer_calls);
}

// An address to its domain and octets, and back.
void convert(common_line *line, const snmpa_address *address, size_t size) {
    snmpa_oid domain = {};
    snmpa_octets octets = {};
    snmpa_address back = {};
    if (USER_snmpaddr_to_taddress(address, &domain, &octets) != 0) {
        common_line_add(line, "refused");
        return;
    }
    add_arcs(line, domain.arcs, domain.count);
    common_line_add(line, " ");
    add_octets(line, octets.bytes, octets.length);
    int result = USER_taddress_to_snmpaddr(&back, &domain, &octets);
    common_line_add(line, " back=%d same=%d", result, memcmp(&back, address, size) == 0);
    Clean_Obj_ID(&domain);
    SNMPA_CleanOctets(&octets);
}

void address_ipv4(common_line *line) {
    snmpa_address address = {};
    const uint8_t ipv4[4] = {192, 168, 0, 9};
    address.v4.sin_family = AF_INET;
    address.v4.sin_port = htons(161);
    memcpy(&address.v4.sin_addr, ipv4, sizeof ipv4);
    convert(line, &address, sizeof address.v4);
}

void address_ipv6(common_line *line) {
    snmpa_address address = {};
    address.v6.sin6_family = AF_INET6;
    address.v6.sin6_port = htons(162);
    address.v6.sin6_addr.s6_addr[0] = 0xfd;
    address.v6.sin6_addr.s6_addr[15] = 0x07;
    convert(line, &address, sizeof address.v6);
}

void address_other(common_line *line) {
    snmpa_address address = {};
    address.v4.sin_family = AF_UNIX;
    convert(line, &address, sizeof address.v4);
}

void community(common_line *line) {
    snmpa_packet packet = {};
    packet.error = 9;
    snmpa_address source = {};
    snmpa_address destination = {};
    source.v4.sin_port = htons(1000);
    destination.v4.sin_port = htons(161);
    common_line_add(line, "result=%d", USER_validate_community(&packet, &source, &destination));
    common_line_add(line, " from=%u to=%u view=%d error=%d", ntohs(packet.source.v4.sin_port),
                    ntohs(packet.destination.v4.sin_port), packet.view_index, packet.error);
}

void view(common_line *line) {
    for (int operation = 0; operation <= 3; operation++)
        common_line_add(line, "%d ", USER_nv_view_op(operation, 0));
    for (int kind = 1; kind <= 5; kind++)
        common_line_add(line, "%d%s", USER_nv_view_op(0, kind), kind < 5 ? " " : "");
}

void stubs(common_line *line) {
    USER_Trace_Input();
    USER_send_proxy_pkt();
    USER_set_users_engine();
    USER_ax_ma_ac_clean();
    const int results[] = {USER_validate_address(),
                           USER_validate_set_pdu(),
                           USER_user_pre_set(),
                           USER_user_post_set(),
                           static_cast<int>(USER_get_sysuptime()),
                           USER_ax_conn_entry(),
                           USER_ax_get_connid(),
                           sys_init(),
                           USER_ax_ma_ac_add(),
                           USER_ax_ma_ac_remove(),
                           USER_ax_find_mib(),
                           NV_Op(),
                           USER_ax_transport_string()};
    const char *blank = "";
    for (int result : results) {
        common_line_add(line, "%s%d", blank, result);
        blank = " ";
    }
}

hbs_lock_record lock_record = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER, 0, {}, {}};

void add_lock(common_line *line, int result) {
    common_line_add(line, " %d:%d,%s,%d,%d", result, lock_record.readers, lock_record.writer.func,
                    lock_record.writer.line, lock_record.writer.pid);
}

// After each step: its result, the readers inside, and who holds the writer mutex.
void lock(common_line *line) {
    common_line_add(line, "steps");
    add_lock(line, reader_lock(&lock_record, 100, "first", 1));
    add_lock(line, reader_lock(&lock_record, 200, "second", 2));
    add_lock(line, reader_unlock(&lock_record, 100, "first", 3));
    add_lock(line, reader_unlock(&lock_record, 200, "second", 4));
    add_lock(line, writer_lock(&lock_record, 300, "third", 5));
    add_lock(line, writer_unlock(&lock_record));
}

struct exercise {
    const char *name;
    void (*run)(common_line *line);
};

constexpr exercise exercises[] = {
    {"objects", objects},     {"stats", stats},       {"memory", memory},
    {"dump", dump},           {"now", now},           {"timer", timer},
    {"ipv4", address_ipv4},   {"ipv6", address_ipv6}, {"other", address_other},
    {"community", community}, {"view", view},         {"stubs", stubs},
    {"lock", lock},
};

void run(const char *name) {
    for (const exercise &each : exercises) {
        if (strcmp(each.name, name) != 0)
            continue;
        common_line line;
        common_line_add(&line, "agent %s: ", name);
        each.run(&line);
        host_journal_write(&line);
    }
}

const char *fifo_path() {
    const char *path = getenv("HBS_HOST_AGENT");
    return path != nullptr && *path != '\0' ? path : default_fifo;
}

// Open for writing too, so that the end of a writer is no end of the file.
void *serve(void *) {
    FILE *orders = fopen(fifo_path(), "r+e");
    char name[64];
    while (orders != nullptr && fgets(name, sizeof name, orders) != nullptr) {
        name[strcspn(name, "\n")] = '\0';
        run(name);
    }
    return nullptr;
}

__attribute__((constructor)) void start() {
    pthread_t thread;
    (void)unlink(fifo_path());
    if (mkfifo(fifo_path(), 0600) == 0 && pthread_create(&thread, nullptr, serve, nullptr) == 0)
        (void)pthread_detach(thread);
}

} // namespace
