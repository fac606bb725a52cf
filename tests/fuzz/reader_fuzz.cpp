// The reader library over a segment in which anything may stand: triples of a place (two bytes, of 16 each)
// and a word are written over a small sound database, then every call is made. Nothing is read outside, every
// text ends inside its field, and no call lasts. What was not written over reads at once. The segment stands
// where nothing can be read behind it, nor before it under the address sanitizer, and cannot be written by
// the library.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <sanitizer/asan_interface.h>
#include <semaphore.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <unistd.h>
#include <vector>

#include <hbs_db.h>
#include <hostbase_query.h>

#include "fuzz_box.h"

// Nobody writes meanwhile: nothing comes of waiting.
extern "C" int nanosleep(const timespec *, timespec *) {
    return 0;
}

namespace {

const void *shown; // the segment as the library sees it

} // namespace

// In the place of the kernel's segment, which ends where its last page does.
extern "C" void *shmat(int, const void *, int) noexcept {
    return const_cast<void *>(shown);
}
extern "C" int shmdt(const void *) noexcept {
    return 0;
}

namespace {

constexpr unsigned on_each_list = 4;
constexpr uint8_t mac[6] = {2, 0xaa, 0, 0, 0, 1};
constexpr uint8_t ipv4[4] = {192, 168, 0, 20};
constexpr uint8_t ipv6[16] = {0xfd, 1};

hbs_db *db;

uint32_t offset_of(const void *element) {
    return static_cast<uint32_t>(static_cast<const uint8_t *>(element) -
                                 reinterpret_cast<const uint8_t *>(db));
}

template <typename Element> void make_list(hbs_list_head *head, Element *pool) {
    head->next = head->prev = offset_of(head);
    for (unsigned i = 0; i < on_each_list; i++) {
        auto *last = reinterpret_cast<hbs_list_head *>(reinterpret_cast<uint8_t *>(db) + head->prev);
        pool[i].next = offset_of(head);
        pool[i].prev = head->prev;
        last->next = head->prev = offset_of(&pool[i]);
    }
}

template <typename Entry> void give_keys(Entry *pool) {
    for (uint32_t i = 0; i < on_each_list; i++) {
        pool[i].count = 1;
        pool[i].key[0] = 200 - i;
    }
}

void make_sound() {
    memset(static_cast<void *>(db), 0, HBS_SHM_SIZE);
    make_list(&db->clients, db->client_pool);
    make_list(&db->ip_index, db->ip_pool);
    make_list(&db->if_index, db->if_pool);
    make_list(&db->dhcp_index, db->dhcp_pool);
    make_list(&db->rule_index, db->rule_pool);
    make_list(&db->pri_index, db->pri_pool);
    for (uint32_t i = 0; i < on_each_list; i++)
        db->client_pool[i].dbpos = offset_of(&db->client_pool[i]);
    give_keys(db->ip_pool);
    give_keys(db->if_pool);
    give_keys(db->dhcp_pool);
    give_keys(db->rule_pool);
    give_keys(db->pri_pool);
    memcpy(db->client_pool[2].mac, mac, sizeof mac);
    memcpy(db->client_pool[3].ipv4, ipv4, sizeof ipv4);
    memcpy(db->client_pool[3].ipv6, ipv6, sizeof ipv6);
}

void scribble(const uint8_t *data, size_t size) {
    for (; size >= 6; data += 6, size -= 6) {
        const size_t place = (data[0] << 8 | data[1]) * size_t{16} + (data[0] & 3U) * 4;
        static_assert(HBS_SHM_SIZE % sizeof(uint32_t) == 0);
        memcpy(reinterpret_cast<uint8_t *>(db) + place % HBS_SHM_SIZE, data + 2, sizeof(uint32_t));
    }
}

template <size_t Size> void expect_text(int (*get)(const uint8_t *, char *)) {
    std::vector<char> field(Size, 'x');
    if (get(mac, field.data()) == HOSTBASE_OK && memchr(field.data(), '\0', Size) == nullptr)
        abort();
}

template <typename Element> void expect_list(int (*get)(Element *, size_t, size_t *), size_t most) {
    for (const size_t room : {size_t{2}, most}) {
        std::vector<Element> elements(room);
        size_t count = 0;
        if (get(elements.data(), room, &count) == HOSTBASE_OK && count > most)
            abort();
    }
}

template <typename Element> bool is_listed(int (*get)(Element *, size_t, size_t *)) {
    std::vector<Element> elements(on_each_list);
    size_t count = 0;
    return get(elements.data(), on_each_list, &count) == HOSTBASE_OK && count == on_each_list;
}

// A database that the reader gives up at would keep every input from what is behind.
void expect_sound() {
    hbs_client client;
    const auto copy = std::make_unique<hbs_db>();
    make_sound();
    const bool is_found = hostbase_find_by_mac(mac, &client) == HOSTBASE_OK &&
                          hostbase_find_by_ipv4(ipv4, &client) == HOSTBASE_OK &&
                          hostbase_find_by_ipv6(ipv6, &client) == HOSTBASE_OK;
    if (!is_found || hostbase_snapshot(copy.get()) != HOSTBASE_OK || !is_listed(hostbase_get_clients) ||
        !is_listed(hostbase_get_ip_index) || !is_listed(hostbase_get_if_index) ||
        !is_listed(hostbase_get_dhcp_index) || !is_listed(hostbase_get_rule_index) ||
        !is_listed(hostbase_get_pri_index))
        abort();
}

// Who starts the target need not ask for a result.
void expect_made(bool made, const char *what) {
    if (made)
        return;
    fprintf(stderr, "%s cannot be made: %s\n", what, strerror(errno));
    exit(1);
}

// Maps the file's pages between two that cannot be reached. Returns where in them a segment stands that ends
// with the last one.
uint8_t *guarded(int file, int rights) {
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t size = (HBS_SHM_SIZE + page - 1) / page * page;
    void *place = mmap(nullptr, size + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    expect_made(place != MAP_FAILED, "room for the segment");
    uint8_t *pages = static_cast<uint8_t *>(place) + page;
    expect_made(ftruncate(file, static_cast<off_t>(size)) == 0 &&
                    mmap(pages, size, rights, MAP_SHARED | MAP_FIXED, file, 0) != MAP_FAILED,
                "a place of the segment");
    ASAN_POISON_MEMORY_REGION(pages, size - HBS_SHM_SIZE);
    return pages + size - HBS_SHM_SIZE;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz_in_box();
    static_assert(HBS_SHM_SIZE % alignof(hbs_db) == 0);
    const int key = open(HBS_SHM_KEY_FILE, O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    expect_made(key >= 0 && close(key) == 0, HBS_SHM_KEY_FILE);
    const int id = shmget(ftok(HBS_SHM_KEY_FILE, HBS_SHM_PROJECT_ID), HBS_SHM_SIZE, IPC_CREAT | 0777);
    expect_made(id != -1, "the segment");
    const int file = memfd_create("segment", MFD_CLOEXEC);
    expect_made(file >= 0, "memory of the segment");
    db = reinterpret_cast<hbs_db *>(guarded(file, PROT_READ | PROT_WRITE));
    shown = guarded(file, PROT_READ);
    (void)sem_unlink(HBS_SEMAPHORE_NAME);
    expect_made(sem_open(HBS_SEMAPHORE_NAME, O_CREAT, 0666, 1) != SEM_FAILED, HBS_SEMAPHORE_NAME);
    expect_sound();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    make_sound();
    scribble(data, size);
    hbs_client client;
    uint32_t number = 0;
    (void)hostbase_find_by_mac(mac, &client);
    (void)hostbase_find_by_ipv4(ipv4, &client);
    (void)hostbase_find_by_ipv6(ipv6, &client);
    (void)hostbase_get_adapter_type(mac, &number);
    (void)hostbase_get_SSID(mac, &number);
    expect_text<HBS_HOST_SIZE>(hostbase_get_host);
    expect_text<HBS_OUI_SIZE>(hostbase_get_manuf_oui);
    expect_text<HBS_SERIAL_SIZE>(hostbase_get_ser_num);
    expect_text<HBS_PRODUCT_SIZE>(hostbase_get_prod_class);
    expect_list(hostbase_get_clients, HBS_MAX_CLIENTS);
    expect_list(hostbase_get_ip_index, HBS_MAX_IP_ENTRIES);
    expect_list(hostbase_get_if_index, HBS_MAX_IF_ENTRIES);
    expect_list(hostbase_get_dhcp_index, HBS_MAX_DHCP_ENTRIES);
    expect_list(hostbase_get_rule_index, HBS_MAX_RULE_ENTRIES);
    expect_list(hostbase_get_pri_index, HBS_MAX_PRI_ENTRIES);
    const auto copy = std::make_unique<hbs_db>();
    (void)hostbase_snapshot(copy.get());
    return 0;
}
