// Attaching to the segment, and waiting for the semaphore that guards it.
#include <chrono>
#include <csignal>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <memory>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

#include <hbs_db.h>
#include <hostbase_query.h>

#include "support/gateway.h"
#include "support/query_segment.h"

using namespace std::chrono_literals;

namespace attachment_test {

using clock_type = std::chrono::steady_clock;

class QueryAttachment : public QuerySegment {};

// --- attaching ------------------------------------------------------------------------------------

TEST_F(QueryAttachment, WhenThereIsNoKeyFile_SaysNoSegment) {
    unlink(HBS_SHM_KEY_FILE);
    hbs_client client;
    EXPECT_EQ(hostbase_find_by_mac(mac_of(1).data(), &client), HOSTBASE_NO_SEGMENT);
}

TEST_F(QueryAttachment, WhenThereIsNoSegment_SaysNoSegment) {
    remove_segment();
    size_t count = 77;
    EXPECT_EQ(hostbase_get_clients(nullptr, 0, &count), HOSTBASE_NO_SEGMENT);
    EXPECT_EQ(count, 77u);
}

TEST_F(QueryAttachment, WhenThereIsNoSemaphore_SaysNoSegment) {
    remove_semaphore();
    auto copy = std::make_unique<hbs_db>();
    EXPECT_EQ(hostbase_snapshot(copy.get()), HOSTBASE_NO_SEGMENT);
}

TEST_F(QueryAttachment, WhenTheSegmentIsTooSmall_DoesNotReadIt) {
    remove_segment();
    make_segment(4096);
    hbs_client client;
    EXPECT_EQ(hostbase_find_by_mac(mac_of(1).data(), &client), HOSTBASE_NO_SEGMENT);
}

TEST_F(QueryAttachment, WhenTheSegmentIsRemoved_SaysSoAtTheNextCall) {
    publish_full();
    hbs_client client;
    ASSERT_EQ(hostbase_find_by_mac(mac_of(7).data(), &client), HOSTBASE_OK);
    remove_segment();
    EXPECT_EQ(hostbase_find_by_mac(mac_of(7).data(), &client), HOSTBASE_NO_SEGMENT);
}

TEST_F(QueryAttachment, WhenTheSegmentIsMadeAnew_ReadsTheNewOne) {
    publish_full();
    hbs_client client;
    ASSERT_EQ(hostbase_find_by_mac(mac_of(7).data(), &client), HOSTBASE_OK);
    remove_segment();
    make_segment();
    EXPECT_EQ(hostbase_find_by_mac(mac_of(7).data(), &client), HOSTBASE_NOT_FOUND);
    publish(0, 9);
    EXPECT_EQ(hostbase_find_by_mac(mac_of(9).data(), &client), HOSTBASE_OK);
}

TEST_F(QueryAttachment, WhenTheKeyFileIsMadeAnew_FollowsIt) {
    size_t count = 0;
    ASSERT_EQ(hostbase_get_clients(nullptr, 0, &count), HOSTBASE_OK);
    remove_segment();
    rename(HBS_SHM_KEY_FILE, "/var/tmp/old.key"); // keeps its inode in use, so that the key differs
    make_key_file();
    make_segment();
    publish(0, 1);
    EXPECT_EQ(hostbase_get_clients(nullptr, 0, &count), HOSTBASE_OK);
    EXPECT_EQ(count, 1u);
    unlink("/var/tmp/old.key");
}

TEST_F(QueryAttachment, WhenTheSegmentOfAnotherKeyFileStandsOn_FollowsTheNewOneSoon) {
    size_t count = 0;
    ASSERT_EQ(hostbase_get_clients(nullptr, 0, &count), HOSTBASE_OK);
    const int old_id = shm_id;
    rename(HBS_SHM_KEY_FILE, "/var/tmp/old.key");
    make_key_file();
    make_segment();
    publish(0, 1);
    EXPECT_TRUE(
        wait_until([&] { return hostbase_get_clients(nullptr, 0, &count) == HOSTBASE_OK && count == 1; }));
    (void)shmctl(old_id, IPC_RMID, nullptr);
    unlink("/var/tmp/old.key");
}

TEST_F(QueryAttachment, ReattachingManyTimes_LeavesNoMappingBehind) {
    size_t count = 0;
    for (int i = 0; i < 50; i++) {
        ASSERT_EQ(hostbase_get_clients(nullptr, 0, &count), HOSTBASE_OK);
        shmid_ds state = {};
        ASSERT_EQ(shmctl(shm_id, IPC_STAT, &state), 0);
        ASSERT_EQ(state.shm_nattch, 2u) << "the test's own and the library's";
        remove_segment();
        make_segment();
    }
}

// Without these, even the superuser is held to the permission bits.
int in_child_without_privilege(const std::function<int()> &call) {
    pid_t child = fork();
    if (child == 0) {
        __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
        __user_cap_data_struct none[2] = {};
        _exit(syscall(SYS_capset, &header, none) == 0 ? -call() : 99);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return -WEXITSTATUS(status);
}

TEST_F(QueryAttachment, WhenTheSemaphoreMayNotBeWritten_SaysNoPermission) {
    ASSERT_EQ(chmod("/dev/shm/sem.QUARN_SEM_HOSTBASE", 0444), 0);
    size_t count = 0;
    EXPECT_EQ(in_child_without_privilege([&] { return hostbase_get_clients(nullptr, 0, &count); }),
              HOSTBASE_NO_PERMISSION);
}

TEST_F(QueryAttachment, WhenTheSegmentMayNotBeRead_SaysNoPermission) {
    shmid_ds state = {};
    ASSERT_EQ(shmctl(shm_id, IPC_STAT, &state), 0);
    state.shm_perm.mode = 0;
    ASSERT_EQ(shmctl(shm_id, IPC_SET, &state), 0);
    size_t count = 0;
    EXPECT_EQ(in_child_without_privilege([&] { return hostbase_get_clients(nullptr, 0, &count); }),
              HOSTBASE_NO_PERMISSION);
}

TEST_F(QueryAttachment, MapsTheSegmentReadOnly_SoThatAReaderOfReadPermissionAloneWorks) {
    shmid_ds state = {};
    ASSERT_EQ(shmctl(shm_id, IPC_STAT, &state), 0);
    state.shm_perm.mode = 0444;
    ASSERT_EQ(shmctl(shm_id, IPC_SET, &state), 0);
    size_t count = 0;
    EXPECT_EQ(in_child_without_privilege([&] { return hostbase_get_clients(nullptr, 0, &count); }),
              HOSTBASE_OK);
}

// --- the semaphore ----------------------------------------------------------------------------------

TEST_F(QueryAttachment, WhenTheSemaphoreDoesNotCome_GivesUpAfterTheWait) {
    publish_full();
    ASSERT_EQ(sem_trywait(semaphore), 0);
    char host[HBS_HOST_SIZE] = "untouched";
    auto start = clock_type::now();
    EXPECT_EQ(hostbase_get_host(mac_of(7).data(), host), HOSTBASE_BUSY);
    auto waited = clock_type::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(HOSTBASE_WAIT_MS - 20));
    EXPECT_LT(waited, std::chrono::milliseconds(20 * HOSTBASE_WAIT_MS));
    EXPECT_STREQ(host, "untouched");
    sem_post(semaphore);
    EXPECT_EQ(hostbase_get_host(mac_of(7).data(), host), HOSTBASE_OK);
}

TEST_F(QueryAttachment, WhenTheSemaphoreWasMadeAnew_FindsItAfterOneBusyCall) {
    size_t count = 0;
    ASSERT_EQ(hostbase_get_clients(nullptr, 0, &count), HOSTBASE_OK);
    ASSERT_EQ(sem_trywait(semaphore), 0);
    remove_semaphore();
    make_semaphore(1);
    EXPECT_EQ(hostbase_get_clients(nullptr, 0, &count), HOSTBASE_BUSY);
    EXPECT_EQ(hostbase_get_clients(nullptr, 0, &count), HOSTBASE_OK);
}

TEST_F(QueryAttachment, EveryCallGivesTheSemaphoreBack) {
    publish_full();
    hbs_client client;
    size_t count = 0;
    for (unsigned holders : {1u, 2u, 5u}) {
        while (holders_to_spare() < static_cast<int>(holders))
            sem_post(semaphore);
        EXPECT_EQ(hostbase_find_by_mac(mac_of(7).data(), &client), HOSTBASE_OK);
        EXPECT_EQ(hostbase_find_by_mac(mac_of(8).data(), &client), HOSTBASE_NOT_FOUND);
        db->clients.next = 5;
        EXPECT_EQ(hostbase_find_by_mac(mac_of(7).data(), &client), HOSTBASE_UNSTABLE);
        EXPECT_EQ(hostbase_get_clients(nullptr, 0, &count), HOSTBASE_UNSTABLE);
        db->clients.next = offset_of(&db->client_pool[3]);
        EXPECT_EQ(holders_to_spare(), static_cast<int>(holders));
    }
}

TEST_F(QueryAttachment, AReaderThatIsTerminatedNeverKeepsTheSemaphore) {
    publish_full();
    for (int i = 0; i < 100; i++) {
        pid_t child = fork();
        if (child == 0) {
            auto copy = std::make_unique<hbs_db>();
            while (true)
                (void)hostbase_snapshot(copy.get());
        }
        std::this_thread::sleep_for(std::chrono::microseconds(2500 + i * 37));
        kill(child, SIGTERM);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));
        ASSERT_EQ(holders_to_spare(), 1) << "run " << i;
    }
}

TEST_F(QueryAttachment, LeavesTheSignalMaskAsItWas) {
    sigset_t before, after;
    pthread_sigmask(SIG_SETMASK, nullptr, &before);
    size_t count = 0;
    ASSERT_EQ(hostbase_get_clients(nullptr, 0, &count), HOSTBASE_OK);
    pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (int signal : {SIGINT, SIGTERM, SIGALRM, SIGTSTP})
        EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal));
}

TEST_F(QueryAttachment, AChildOfAReaderReadsToo) {
    publish_full();
    size_t count = 0;
    ASSERT_EQ(hostbase_get_clients(nullptr, 0, &count), HOSTBASE_OK);
    pid_t child = fork();
    if (child == 0) {
        hbs_client client;
        _exit(hostbase_find_by_mac(mac_of(7).data(), &client) == HOSTBASE_OK ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

} // namespace attachment_test
