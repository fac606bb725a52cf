// Start-up of the segment: every step, every failure, take-over of what an earlier run left.
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <semaphore.h>
#include <string>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

#include "store/index.h"
#include "store/pools.h"
#include "store/rule_index.h"
#include "store/shm.h"
#include "store/slots.h"
#include "support/store.h"

// The system calls of the start-up, in the place of the C library's: each can be told to fail.
namespace {

struct Faults {
    bool ftok;
    int create_error; // errno of shmget with IPC_CREAT; 0 = none
    int get_error;    // of shmget without
    bool attach_null;
    bool attach_error;
} faults;

// A segment of this test's own making, unless it fails.
int get_segment(key_t key, size_t size, int flags) {
    return static_cast<int>(syscall(SYS_shmget, key, size, flags));
}

} // namespace

extern "C" key_t ftok(const char *path, int id) noexcept {
    struct stat status {};
    if (faults.ftok || stat(path, &status) != 0)
        return -1;
    return static_cast<key_t>((status.st_ino & 0xffff) | (status.st_dev & 0xff) << 16 |
                              (static_cast<unsigned>(id) & 0xff) << 24);
}

extern "C" int shmget(key_t key, size_t size, int flags) noexcept {
    int error = (flags & IPC_CREAT) != 0 ? faults.create_error : faults.get_error;
    if (error == 0)
        return get_segment(key, size, flags);
    errno = error;
    return -1;
}

extern "C" void *shmat(int id, const void *address, int flags) noexcept {
    if (faults.attach_null) {
        errno = ENOMEM;
        return nullptr;
    }
    if (faults.attach_error)
        return reinterpret_cast<void *>(intptr_t{-1});
    return reinterpret_cast<void *>(syscall(SYS_shmat, id, address, flags));
}

namespace {

class ShmInit : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        faults = {};
    }

    void TearDown() override {
        faults = {};
        expect_store_sound();
        (void)rmdir(SEMAPHORE_FILE);
        GatewayTest::TearDown();
    }

    static int semaphore_value() {
        sem_t *semaphore = sem_open(HBS_SEMAPHORE_NAME, 0);
        if (semaphore == SEM_FAILED)
            return -1;
        int value = -1;
        (void)sem_getvalue(semaphore, &value);
        (void)sem_close(semaphore);
        return value;
    }

    // A segment that an earlier run left: every byte 0xA5.
    static void leave_segment(size_t size) {
        write_file(HBS_SHM_KEY_FILE, "");
        int id = get_segment(ftok(HBS_SHM_KEY_FILE, HBS_SHM_PROJECT_ID), size, IPC_CREAT | IPC_EXCL | 0777);
        ASSERT_GE(id, 0);
        void *base = shmat(id, nullptr, 0);
        ASSERT_NE(reinterpret_cast<void *>(intptr_t{-1}), base);
        memset(base, 0xA5, (size + 4095) / 4096 * 4096);
        (void)shmdt(base);
    }

    void expect_failure(const std::string &message) {
        hbs_shm_init();
        EXPECT_EQ(nullptr, hbs_segment());
        EXPECT_EQ(1u, logged_count(message)) << message;
        EXPECT_EQ(1, semaphore_value()) << "posted once";
        EXPECT_EQ(0u, logged_containing("shared memory ["));
    }

    static constexpr const char *SEMAPHORE_FILE = "/dev/shm/sem.QUARN_SEM_HOSTBASE";
};

std::string pointer_text(const void *pointer) {
    char text[32];
    (void)snprintf(text, sizeof text, "%p", pointer);
    return text;
}

TEST_F(ShmInit, FirstStart_CreatesSegmentOfExactSizeAndMode) {
    mode_t mask = umask(077);
    hbs_shm_init();
    umask(mask);
    int id = get_segment(ftok("/var/tmp/hostbase_shm.key", 'N'), 0, 0);
    ASSERT_GE(id, 0);
    shmid_ds status{};
    ASSERT_EQ(0, shmctl(id, IPC_STAT, &status));
    EXPECT_EQ(221236u, status.shm_segsz);
    EXPECT_EQ(0777u, status.shm_perm.mode & 0777u);
    EXPECT_EQ(221236u, hbs_segment_size());
}

TEST_F(ShmInit, FirstStart_SemaphoreIsOpenToEveryUserAndPostedOnce) {
    mode_t mask = umask(077);
    hbs_shm_init();
    EXPECT_EQ(077u, umask(mask)) << "the process keeps its umask";
    EXPECT_EQ(1, semaphore_value());
    struct stat status {};
    ASSERT_EQ(0, stat(SEMAPHORE_FILE, &status));
    EXPECT_EQ(0666u, status.st_mode & 0777u);
}

TEST_F(ShmInit, FirstStart_LogsSizeAddressAndRange) {
    hbs_shm_init();
    auto *base = reinterpret_cast<const uint8_t *>(hbs_segment_shared());
    const std::vector<std::string> expected = {
        "HOSTBASE: shared memory size: 221236\n",
        "HOSTBASE: shared memory attached at: " + pointer_text(base) + "\n",
        "HOSTBASE: shared memory [" + pointer_text(base) + ", " + pointer_text(base + 221236) + ")"};
    EXPECT_EQ(expected, log_lines());
}

TEST_F(ShmInit, KeyFile_IsTruncated) {
    write_file(HBS_SHM_KEY_FILE, "left behind");
    hbs_shm_init();
    ASSERT_NE(nullptr, hbs_segment());
    EXPECT_TRUE(file_exists(HBS_SHM_KEY_FILE));
    EXPECT_EQ("", read_file(HBS_SHM_KEY_FILE));
}

TEST_F(ShmInit, FirstStart_HeadsHoldTheirOwnOffsets) {
    hbs_shm_init();
    uint32_t words[13];
    memcpy(words, hbs_segment_shared(), sizeof words);
    const uint32_t expected[13] = {0, 4, 4, 12, 12, 20, 20, 28, 28, 36, 36, 44, 44};
    for (int i = 0; i < 13; i++)
        EXPECT_EQ(expected[i], words[i]) << "word " << i;
}

TEST_F(ShmInit, FirstStart_EveryElementIsFree) {
    hbs_shm_init();
    const int expected[HBS_POOLS] = {96, 288, 96, 192, 96, 96};
    for (int i = 0; i < HBS_POOLS; i++)
        EXPECT_EQ(expected[i], hbs_pool_free_count(static_cast<hbs_pool>(i))) << "pool " << i;
}

TEST_F(ShmInit, WhenOldSegmentExists_TakesItOverEmptiedAndPostsOnceMore) {
    leave_segment(HBS_SHM_SIZE);
    sem_t *old = sem_open(HBS_SEMAPHORE_NAME, O_CREAT, 0666, 1);
    ASSERT_NE(SEM_FAILED, old);
    hbs_shm_init();
    ASSERT_NE(nullptr, hbs_segment());
    EXPECT_EQ(0xA5A5A5A5u, hbs_segment_shared()->reserved) << "not the daemon's to write";
    EXPECT_EQ(nullptr, hbs_list_first(hbs_pool::clients));
    EXPECT_EQ(0u, hbs_segment_shared()->client_pool[3].dbpos);
    EXPECT_EQ(2, semaphore_value());
    expect_store_sound();
    (void)sem_close(old);
}

TEST_F(ShmInit, WhenCalledAgain_KeepsTheSegmentAndEmptiesIt) {
    hbs_shm_init();
    const hbs_db *before = hbs_segment();
    hbs_client client{};
    ASSERT_TRUE(hbs_slot_publish(&client));
    hostbase_update_ip_indicies(&client);
    const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    const uint32_t p[7] = {};
    hbs_file_update_rule_idx(1, mac, p);
    ASSERT_EQ(1u, hbs_pri_count());
    clear_log();
    hbs_shm_init();
    EXPECT_EQ(before, hbs_segment());
    EXPECT_EQ(96, hbs_pool_free_count(hbs_pool::clients));
    EXPECT_EQ(nullptr, hbs_slot_of(&client));
    EXPECT_EQ(0u, hbs_rule_count());
    EXPECT_EQ(0u, hbs_pri_count());
    EXPECT_EQ(0u, hbs_pri_map().word[0]);
    EXPECT_EQ(0u, hbs_rnd_map(0).word[0]);
    EXPECT_EQ(2, semaphore_value());
    EXPECT_EQ(1u, log_lines().size()) << "only the range";
}

TEST_F(ShmInit, AReaderAtAnotherAddressReadsTheSameList) {
    hbs_shm_init();
    {
        const hbs_shm_hold hold;
        void *first = hbs_pool_take(hbs_pool::clients);
        void *second = hbs_pool_take(hbs_pool::clients);
        hbs_list_link(hbs_pool::clients, first, nullptr);
        hbs_list_link(hbs_pool::clients, second, first);
        for (void *element : {first, second})
            static_cast<hbs_client *>(element)->dbpos = hbs_pool_offset(element);
    }
    int id = get_segment(ftok(HBS_SHM_KEY_FILE, HBS_SHM_PROJECT_ID), 0, 0);
    auto *reader = static_cast<const uint8_t *>(shmat(id, nullptr, SHM_RDONLY));
    ASSERT_NE(reinterpret_cast<const uint8_t *>(hbs_segment_shared()), reader);
    uint32_t offset = reinterpret_cast<const hbs_db *>(reader)->clients.next;
    EXPECT_EQ(52u + 1744u, offset);
    offset = reinterpret_cast<const hbs_client *>(reader + offset)->next;
    EXPECT_EQ(52u, offset);
    offset = reinterpret_cast<const hbs_client *>(reader + offset)->next;
    EXPECT_EQ(4u, offset) << "back at the head";
    (void)shmdt(reader);
}

TEST_F(ShmInit, WhenSemaphoreCannotBeOpened_GoesOnWithoutOne) {
    ASSERT_EQ(0, mkdir(SEMAPHORE_FILE, 0777));
    hbs_shm_init();
    EXPECT_EQ(1u, logged_count("HBS semaphore open error"));
    EXPECT_NE(nullptr, hbs_segment());
    hbs_shm_hold unusable;
    EXPECT_EQ(288, hbs_pool_free_count(hbs_pool::ip));
}

TEST_F(ShmInit, WhenKeyFileCannotBeCreated_SaysSo) {
    ASSERT_EQ(0, mkdir(HBS_SHM_KEY_FILE, 0777));
    expect_failure("HOSTBASE: Cannot create gwhostbase shared memory key file - Is a directory");
}

TEST_F(ShmInit, WhenAFifoIsInTheKeyFilesPlace_SaysSoAtOnce) {
    ASSERT_EQ(0, mkfifo(HBS_SHM_KEY_FILE, 0666));
    expect_failure("HOSTBASE: Cannot create gwhostbase shared memory key file - No such device or address");
}

TEST_F(ShmInit, WhenALinkIsInTheKeyFilesPlace_LeavesItsTargetAsItIs) {
    write_file(directory() + "/victim", "precious");
    ASSERT_EQ(0, symlink((directory() + "/victim").c_str(), HBS_SHM_KEY_FILE));
    expect_failure(
        "HOSTBASE: Cannot create gwhostbase shared memory key file - Too many levels of symbolic links");
    EXPECT_EQ("precious", read_file(directory() + "/victim"));
}

TEST_F(ShmInit, WhenKeyCannotBeMade_SaysSo) {
    faults.ftok = true;
    expect_failure("HOSTBASE: Failed to create hostbase shm key");
    faults.ftok = false;
}

TEST_F(ShmInit, WhenSegmentCannotBeCreated_SaysSo) {
    faults.create_error = ENOSPC;
    expect_failure("HOSTBASE: Failed to create hostbase shared memory - No space left on device");
    EXPECT_TRUE(logged("HOSTBASE: shared memory size: 221236\n"));
}

TEST_F(ShmInit, WhenExistingSegmentCannotBeTaken_SaysSo) {
    faults.create_error = EEXIST;
    faults.get_error = EACCES;
    expect_failure("HOSTBASE: Failed to get hostbase shared memory - Permission denied");
}

TEST_F(ShmInit, WhenAttachGivesNull_SaysSo) {
    faults.attach_null = true;
    expect_failure(
        "HOSTBASE: Failed to attach shared memory segment to current process - Cannot allocate memory");
    EXPECT_EQ(0u, logged_containing("attached at"));
}

TEST_F(ShmInit, WhenAttachGivesTheErrorValue_IsNoFailureMessageAndNoSegment) {
    faults.attach_error = true;
    expect_failure("HOSTBASE: shared memory attached at: " +
                   pointer_text(reinterpret_cast<void *>(intptr_t{-1})) + "\n");
    EXPECT_EQ(0u, logged_containing("Failed"));
}

TEST_F(ShmInit, WhenOldSegmentIsShorter_CarvesWhatFitsAndWritesNothingBehind) {
    // Two slots, and part of a third.
    constexpr size_t size = 52 + 2 * 1744 + 100;
    leave_segment(size);
    hbs_shm_init();
    ASSERT_NE(nullptr, hbs_segment());
    EXPECT_EQ(size, hbs_segment_size());
    EXPECT_EQ(2, hbs_pool_free_count(hbs_pool::clients));
    EXPECT_EQ(0, hbs_pool_free_count(hbs_pool::ip));
    EXPECT_EQ(nullptr, hbs_pool_take(hbs_pool::primary));
    auto *bytes = reinterpret_cast<const uint8_t *>(hbs_segment_shared());
    for (size_t i = size; i < 4096; i++)
        ASSERT_EQ(0xA5, bytes[i]) << "byte " << i;
    EXPECT_EQ(52u, hbs_pool_offset(hbs_pool_take(hbs_pool::clients)));
    EXPECT_EQ(52u + 1744u, hbs_pool_offset(hbs_pool_take(hbs_pool::clients)));
    EXPECT_EQ(nullptr, hbs_pool_take(hbs_pool::clients));
    hbs_segment_attach(nullptr, 0); // the checks at the end are for whole segments
}

TEST_F(ShmInit, WhenOldSegmentHasNoRoomForTheHeads_IsNotTaken) {
    leave_segment(51);
    expect_failure("HOSTBASE: Failed to get hostbase shared memory - Invalid argument");
}

TEST_F(ShmInit, WithoutSegment_EveryOperationDoesNothing) {
    const hbs_client client{};
    const uint32_t p[7] = {};
    const uint8_t mac[6] = {};
    EXPECT_EQ(nullptr, hbs_segment());
    hbs_pools_carve();
    EXPECT_EQ(nullptr, hbs_pool_take(hbs_pool::clients));
    EXPECT_EQ(nullptr, hbs_pool_element(hbs_pool::clients, 52));
    EXPECT_EQ(-1, hbs_pool_number(hbs_pool::clients, &client));
    EXPECT_EQ(0, hbs_pool_free_count(hbs_pool::clients));
    EXPECT_EQ(nullptr, hbs_list_first(hbs_pool::clients));
    EXPECT_EQ(nullptr, hbs_slot_of(&client));
    hbs_pool_give(hbs_pool::clients, nullptr);
    hbs_list_link(hbs_pool::clients, nullptr, nullptr);
    hbs_list_unlink(hbs_pool::clients, nullptr);
    hostbase_update_ip_indicies(&client);
    hbs_file_remove_if_idx_locked(&client);
    hbs_file_remove_ipv6_entry(&client);
    hbs_file_remove_ll_entries(&client);
    hbs_file_update_rule_idx(1, mac, p);
    hbs_file_remove_rule_idx(1, mac, 0, 0, 0);
    hbs_index_clear();
    hbs_rule_index_clear();
    EXPECT_EQ(0u, hbs_rule_count());
}

} // namespace
