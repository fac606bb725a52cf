// The semaphore keeps readers waiting, so nothing is done with files while it is held.
#include <atomic>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "store/client_end.h"
#include "store/client_fields.h"
#include "store/merge.h"
#include "support/working_clients.h"

namespace {

bool watching;
std::atomic<int> uses;         // of files
std::atomic<int> uses_in_hold; // of them while readers had to wait
std::atomic<int> refused_locks;

void note_use() {
    if (!watching)
        return;
    ++uses;
    if (semaphore_value() != 1)
        ++uses_in_hold;
}

// As fopen takes its mode.
int flags_of(const char *mode) {
    const int access = strchr(mode, '+') != nullptr ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    const int made = mode[0] == 'w' ? O_CREAT | O_TRUNC : mode[0] == 'a' ? O_CREAT | O_APPEND : 0;
    return access | made | (strchr(mode, 'e') != nullptr ? O_CLOEXEC : 0);
}

} // namespace

// These stand before the system's own, and do the same by other names: a static program cannot ask for the
// next one.
extern "C" {
int open(const char *path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    note_use();
    return openat(AT_FDCWD, path, flags, mode);
}
FILE *fopen(const char *path, const char *mode) {
    note_use();
    const int descriptor = openat(AT_FDCWD, path, flags_of(mode), 0666);
    return descriptor == -1 ? nullptr : fdopen(descriptor, mode);
}
int flock(int descriptor, int operation) noexcept {
    note_use();
    const auto result = static_cast<int>(syscall(SYS_flock, descriptor, operation));
    if (watching && result != 0)
        ++refused_locks;
    return result;
}
int unlink(const char *path) noexcept {
    note_use();
    return unlinkat(AT_FDCWD, path, 0);
}
int rename(const char *from, const char *to) noexcept {
    note_use();
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}
}

class HoldFiles : public PublishTest {
  protected:
    static constexpr const char *LEASES = "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases";

    void SetUp() override {
        PublishTest::SetUp();
        write_file(LEASES, "02:aa:00:00:00:01 192.168.0.50\n02:aa:00:00:00:02 192.168.0.51\n");
        write_file("/var/tmp/lease_a", "x");
        uses = uses_in_hold = refused_locks = 0;
    }
    void TearDown() override {
        watching = false;
        PublishTest::TearDown();
    }
    // A published client with lines in the lease file and a file of its own.
    static hbs_client *client_with_files(unsigned number) {
        hbs_client *client = add_client(number);
        hbs_set_lease_file(client, "lease_a");
        hbs_publish(client);
        return client;
    }
    static void expect_files_used_outside_holds_only() {
        watching = false;
        EXPECT_GT(uses, 0);
        EXPECT_EQ(0, uses_in_hold);
        EXPECT_FALSE(file_exists("/var/tmp/lease_a"));
        EXPECT_EQ("02:aa:00:00:00:02 192.168.0.51\n", read_file(LEASES));
    }
    // 96 published clients, of whom the first alone may go.
    static void fill_with_files() {
        hbs_client *first = client_with_files(1);
        for (unsigned n = 2; n <= HBS_MAX_CLIENTS; ++n) {
            hbs_client *client = add_client(n);
            client->flags = HBS_FLAG_ONLINE;
            hbs_publish(client);
        }
        go_offline(first, 1);
    }
};

TEST_F(HoldFiles, WatchedUsesAreSeen) {
    watching = true;
    const hbs_shm_hold hold;
    (void)file_exists(LEASES);
    (void)unlink("/var/tmp/not-there");
    EXPECT_GT(uses_in_hold, 0);
}

TEST_F(HoldFiles, ClientThatIsReclaimed) {
    fill_with_files();
    hbs_client *late = add_client(97);
    watching = true;
    hbs_publish(late);
    EXPECT_NE(HBS_DBPOS_NONE, late->dbpos);
    expect_files_used_outside_holds_only();
}

TEST_F(HoldFiles, ClientThatMakesRoom) {
    fill_with_files();
    for (unsigned n = HBS_MAX_CLIENTS + 1; n <= HBS_MAX_WORKING; ++n)
        add_client(n)->flags = HBS_FLAG_ONLINE;
    watching = true;
    EXPECT_NE(nullptr, add_client(600));
    EXPECT_EQ(nullptr, hbs_find_by_mac(mac_number(1).data()));
    expect_files_used_outside_holds_only();
}

TEST_F(HoldFiles, ClientThatIsRemoved) {
    hbs_client *client = client_with_files(1);
    add_published(2);
    watching = true;
    hbs_remove_client(client);
    expect_files_used_outside_holds_only();
}

TEST_F(HoldFiles, ClientThatIsMergedAway) {
    hbs_client *nomac = hbs_add(nullptr);
    hbs_set_ipv4(nomac, ipv4_number(1).data());
    hbs_publish(nomac);
    add_published(3);
    watching = true;
    EXPECT_NE(nomac, hbs_set_mac(nomac, mac_number(3).data()));
    EXPECT_EQ(0, uses_in_hold);
}

// Who locks a lease file keeps its lines from being dropped, and nobody else waiting.
TEST_F(HoldFiles, ForeignLockOnALeaseFileDelaysNoReader) {
    fill_with_files();
    const int foreign = open(LEASES, O_RDWR);
    ASSERT_EQ(0, flock(foreign, LOCK_EX));
    hbs_client *late = add_client(97);
    watching = true;
    std::thread publisher([&] { hbs_publish(late); });
    while (refused_locks == 0)
        std::this_thread::yield();
    EXPECT_EQ(1, semaphore_value()) << "readers may look while the daemon waits for the file";
    const auto slots = published_clients();
    EXPECT_EQ(late->client_id, slots.back()->client_id) << "and find the newcomer";
    EXPECT_EQ(0, flock(foreign, LOCK_UN));
    publisher.join();
    close(foreign);
    expect_files_used_outside_holds_only();
}
