// The claim to be the only daemon: who has it, who sees it, what other users can put in its way.
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/paths.h"
#include "daemon/one_daemon.h"
#include "support/gateway.h"

namespace one_daemon_test {

// A process that claims, tells the result, and lives until it is killed.
class Claimant {
  public:
    explicit Claimant(uid_t user = geteuid()) {
        int ends[2];
        EXPECT_EQ(0, pipe(ends));
        pid_ = fork();
        if (pid_ == 0) {
            pid_t running = 0;
            const bool is_user = user == geteuid() || setuid(user) == 0;
            const hbs_claim result = is_user ? hbs_claim_daemon(&running) : hbs_claim::impossible;
            (void)!write(ends[1], &result, sizeof result);
            for (;;)
                (void)pause();
        }
        (void)close(ends[1]);
        EXPECT_EQ(static_cast<ssize_t>(sizeof result_), read(ends[0], &result_, sizeof result_));
        (void)close(ends[0]);
    }
    ~Claimant() { end(); }
    Claimant(const Claimant &) = delete;
    Claimant &operator=(const Claimant &) = delete;

    void end() {
        if (pid_ <= 0)
            return;
        (void)kill(pid_, SIGKILL);
        (void)waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }
    pid_t pid() const { return pid_; }
    hbs_claim result() const { return result_; }

  private:
    pid_t pid_ = -1;
    hbs_claim result_ = hbs_claim::impossible;
};

class OneDaemon : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        std::filesystem::remove_all(HBS_LOCK_FILE);
    }
    void TearDown() override {
        std::filesystem::remove_all(HBS_LOCK_FILE);
        GatewayTest::TearDown();
    }

    // That a claim comes through whatever lies in the file's place, and that it is a real one.
    static void expect_claim_works() {
        const Claimant first;
        EXPECT_EQ(hbs_claim::own, first.result());
        struct stat status {};
        ASSERT_EQ(0, lstat(HBS_LOCK_FILE, &status));
        EXPECT_TRUE(S_ISREG(status.st_mode));
        EXPECT_EQ(0600u, status.st_mode & 07777u);
        const Claimant second;
        EXPECT_EQ(hbs_claim::taken, second.result());
    }
};

TEST_F(OneDaemon, FirstHasIt_SecondIsToldItsPid) {
    const mode_t mask = umask(0);
    const Claimant first;
    (void)umask(mask);
    EXPECT_EQ(hbs_claim::own, first.result());
    pid_t running = 0;
    EXPECT_EQ(hbs_claim::taken, hbs_claim_daemon(&running));
    EXPECT_EQ(first.pid(), running);
    EXPECT_EQ(hbs_claim::taken, hbs_claim_daemon(&running)) << "asking changes nothing";
}

TEST_F(OneDaemon, KilledOne_LeavesNothingInTheWay) {
    Claimant first;
    first.end();
    EXPECT_TRUE(file_exists(HBS_LOCK_FILE));
    expect_claim_works();
}

TEST_F(OneDaemon, OneThatIsJustEnding_IsWaitedFor) {
    // A machine that keeps the killer away for longer than the patience makes it another case: once more.
    EXPECT_TRUE(wait_until([] {
        Claimant first;
        const pid_t killer = fork();
        if (killer == 0) {
            sleep_milliseconds(HBS_CLAIM_PATIENCE_MS / 4);
            _exit(kill(first.pid(), SIGKILL));
        }
        pid_t running = 0;
        const hbs_claim claim = hbs_claim_daemon(&running);
        (void)waitpid(killer, nullptr, 0);
        return claim == hbs_claim::own;
    }));
}

TEST_F(OneDaemon, ChildrenOfTheDaemon_DoNotKeepItsPlace) {
    const pid_t parent = fork();
    if (parent == 0) {
        pid_t running = 0;
        (void)hbs_claim_daemon(&running);
        (void)std::system("sleep 300 & echo $! > /var/tmp/test_child");
        _exit(0);
    }
    (void)waitpid(parent, nullptr, 0);
    const pid_t child = std::stoi(read_file("/var/tmp/test_child"));
    ASSERT_EQ(0, kill(child, 0));
    pid_t running = 0;
    EXPECT_EQ(hbs_claim::own, hbs_claim_daemon(&running));
    EXPECT_EQ(0, kill(child, SIGKILL)) << "it lived on meanwhile";
    (void)unlink("/var/tmp/test_child");
}

// --- a directory of the daemon's own user, which others cannot write to ---

class OneDaemonOfAUser : public OneDaemon {
  protected:
    static constexpr uid_t USER = 65534;

    void SetUp() override {
        OneDaemon::SetUp();
        if (chown("/var/tmp", USER, USER) != 0)
            GTEST_SKIP() << "no other user here";
        ASSERT_EQ(0, chmod("/var/tmp", 02770));
    }
    void TearDown() override {
        (void)!chown("/var/tmp", 0, 0);
        (void)chmod("/var/tmp", 01777);
        OneDaemon::TearDown();
    }
};

TEST_F(OneDaemonOfAUser, RootIsToldThatItRuns) {
    const Claimant service(USER);
    ASSERT_EQ(hbs_claim::own, service.result());
    pid_t running = 0;
    EXPECT_EQ(hbs_claim::taken, hbs_claim_daemon(&running));
    EXPECT_EQ(service.pid(), running);
}

TEST_F(OneDaemonOfAUser, IsToldThatRootsRuns) {
    Claimant by_hand;
    ASSERT_EQ(hbs_claim::own, by_hand.result());
    EXPECT_EQ(hbs_claim::taken, Claimant(USER).result());
    by_hand.end();
    EXPECT_EQ(hbs_claim::own, Claimant(USER).result());
}

TEST_F(OneDaemonOfAUser, FileOfAThird_IsReplaced) {
    write_file(HBS_LOCK_FILE, "planted");
    ASSERT_EQ(0, chmod(HBS_LOCK_FILE, 0600));
    ASSERT_EQ(0, chown(HBS_LOCK_FILE, 1000, 1000));
    expect_claim_works();
    EXPECT_EQ(std::string::npos, read_file(HBS_LOCK_FILE).find("planted"));
}

// --- what lies in the file's place ---

TEST_F(OneDaemon, OwnFileOfAnEarlierRun_IsUsed) {
    write_file(HBS_LOCK_FILE, "");
    ASSERT_EQ(0, chmod(HBS_LOCK_FILE, 0600));
    expect_claim_works();
}

TEST_F(OneDaemon, FileThatOthersMayOpen_IsReplaced) {
    write_file(HBS_LOCK_FILE, "planted");
    ASSERT_EQ(0, chmod(HBS_LOCK_FILE, 0644));
    const pid_t reader = fork();
    if (reader == 0) {
        const int file = open(HBS_LOCK_FILE, O_RDONLY);
        struct flock lock {};
        lock.l_type = F_RDLCK;
        (void)fcntl(file, F_SETLK, &lock);
        write_file("/var/tmp/test_locked", "");
        for (;;)
            (void)pause();
    }
    ASSERT_TRUE(wait_until([] { return file_exists("/var/tmp/test_locked"); }));
    expect_claim_works();
    (void)kill(reader, SIGKILL);
    (void)waitpid(reader, nullptr, 0);
    (void)unlink("/var/tmp/test_locked");
}

TEST_F(OneDaemon, Link_IsReplacedAndItsTargetLeftAlone) {
    write_file("/var/tmp/test_target", "precious");
    ASSERT_EQ(0, symlink("/var/tmp/test_target", HBS_LOCK_FILE));
    expect_claim_works();
    EXPECT_EQ("precious", read_file("/var/tmp/test_target"));
    (void)unlink("/var/tmp/test_target");
}

TEST_F(OneDaemon, LinkToNowhere_IsReplaced) {
    ASSERT_EQ(0, symlink("/var/tmp/not_there", HBS_LOCK_FILE));
    expect_claim_works();
    EXPECT_FALSE(file_exists("/var/tmp/not_there"));
}

TEST_F(OneDaemon, Fifo_IsReplacedWithoutAWait) {
    ASSERT_EQ(0, mkfifo(HBS_LOCK_FILE, 0666));
    expect_claim_works();
}

TEST_F(OneDaemon, Socket_IsReplaced) {
    const int planted = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, HBS_LOCK_FILE, sizeof HBS_LOCK_FILE);
    ASSERT_EQ(0, bind(planted, reinterpret_cast<const sockaddr *>(&address), sizeof address));
    expect_claim_works();
    (void)close(planted);
}

TEST_F(OneDaemon, EmptyDirectory_IsReplaced) {
    ASSERT_EQ(0, mkdir(HBS_LOCK_FILE, 0777));
    expect_claim_works();
}

TEST_F(OneDaemon, DirectoryThatCannotBeRemoved_MakesAClaimImpossible) {
    std::filesystem::create_directories(HBS_LOCK_FILE "/full");
    pid_t running = 0;
    EXPECT_EQ(hbs_claim::impossible, hbs_claim_daemon(&running));
    EXPECT_EQ(ENOTEMPTY, errno);
}

} // namespace one_daemon_test
