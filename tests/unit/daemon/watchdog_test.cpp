// The watchdog's tick against process tables of the test's own, and its timer. The C library's timers and
// system() are stood in for, so that nothing is ended and every argument is seen.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "daemon/watchdog.h"
#include "support/gateway.h"
#include "support/trace.h"

namespace fake {
bool create_fails = false;
bool settime_fails = false;
sigevent event{};
int next_timer = 0;
int timers = 0; // that exist
} // namespace fake

extern "C" int timer_create(clockid_t clock, sigevent *event, timer_t *timer) noexcept {
    if (fake::create_fails)
        return -1;
    fake::event = *event;
    fake::timers++;
    *timer = reinterpret_cast<timer_t>(static_cast<intptr_t>(++fake::next_timer));
    trace::add(trace::format("create %d on clock %d", fake::next_timer, clock));
    return 0;
}

extern "C" int timer_settime(timer_t timer, int flags, const itimerspec *value, itimerspec *old) noexcept {
    if (fake::settime_fails)
        return -1;
    trace::add(trace::format(
        "set %d flags %d first %d.%ld interval %d.%ld old %d",
        static_cast<int>(reinterpret_cast<intptr_t>(timer)), flags, static_cast<int>(value->it_value.tv_sec),
        static_cast<long>(value->it_value.tv_nsec), static_cast<int>(value->it_interval.tv_sec),
        static_cast<long>(value->it_interval.tv_nsec), old != nullptr));
    return 0;
}

extern "C" int timer_delete(timer_t timer) noexcept {
    fake::timers--;
    trace::add(trace::format("delete %d", static_cast<int>(reinterpret_cast<intptr_t>(timer))));
    return 0;
}

extern "C" int system(const char *command) {
    trace::add(std::string("system ") + command);
    return 0;
}

using testing::ElementsAre;
using testing::MatchesRegex;

namespace {

class Watchdog : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        hbs_list_mutex_init();
        file_watch_block_count = 0;
        fake::create_fails = false;
        fake::settime_fails = false;
        pid_file = directory() + "/thread.pid";
        write_file(pid_file, "pid:11 tid:22");
        (void)trace::take();
    }

    std::string wchan() const { return directory() + "/11/task/22/wchan"; }

    // What a tick traces when the thread waits there.
    trace::list tick(const std::string &waits_in) {
        write_file(wchan(), waits_in);
        return tick();
    }

    trace::list tick() {
        hbs_watchdog_tick(pid_file.c_str(), directory().c_str());
        return trace::take();
    }

    std::string pid_file;
};

std::string blocked(int count) {
    return "log HOSTBASE: file_watcher_timer_handle __skb_recv_datagram block " + std::to_string(count) +
           " time";
}

const auto REBOOT =
    MatchesRegex("log HOSTBASE: file_watcher_timer_handle reboot gw_hostbase at uptime:[0-9]+");

const auto ENDS_THE_DAEMON =
    ElementsAre(REBOOT, "system cat /var/tmp/dhcp_lease_record", "system cat /var/tmp/hbs_watch_file.tmp",
                "system killall gw_hostbase");

TEST_F(Watchdog, FourBlockedTicks_AreCounted_TheFifthEndsTheDaemon) {
    for (int count = 1; count <= 4; count++)
        EXPECT_THAT(tick("__skb_recv_datagram"), ElementsAre(blocked(count)));
    EXPECT_THAT(tick("__skb_recv_datagram"), ENDS_THE_DAEMON);
}

TEST_F(Watchdog, FifthTick_EndsTheDaemonEvenWhenTheThreadIsElsewhereByThen) {
    file_watch_block_count = 4;
    EXPECT_THAT(tick("inotify_read"), ENDS_THE_DAEMON);
}

TEST_F(Watchdog, AnyOtherTick_ResetsTheCount) {
    for (int count = 1; count <= 3; count++)
        (void)tick("__skb_recv_datagram");
    EXPECT_THAT(tick("inotify_read"), ElementsAre());
    EXPECT_EQ(file_watch_block_count, 0);
    EXPECT_THAT(tick("__skb_recv_datagram"), ElementsAre(blocked(1)));
}

TEST_F(Watchdog, LongerTextThatBeginsSo_CountsAsBlocked) {
    EXPECT_THAT(tick("__skb_recv_datagram_more\n"), ElementsAre(blocked(1)));
}

TEST_F(Watchdog, TextsThatDiffer_DoNotCount) {
    for (const char *text :
         {"", "0", "__skb_recv_datagra", "__skb_wait_for_more_packets", "x__skb_recv_datagram"}) {
        EXPECT_THAT(tick(text), ElementsAre()) << text;
        EXPECT_EQ(file_watch_block_count, 0);
    }
}

TEST_F(Watchdog, WithoutAPidFile_EndsTheDaemonAtOnce) {
    std::filesystem::remove(pid_file);
    EXPECT_THAT(tick("inotify_read"),
                ElementsAre("log HOSTBASE: file_watcher_timer_handle Couldn't open file_watch_thread.pid",
                            REBOOT, "system cat /var/tmp/dhcp_lease_record",
                            "system cat /var/tmp/hbs_watch_file.tmp", "system killall gw_hostbase"));
}

// A FIFO in its place would hold the timer's thread for ever.
TEST_F(Watchdog, FifoOrLinkAsPidFile_CannotBeOpened) {
    std::filesystem::remove(pid_file);
    ASSERT_EQ(0, mkfifo(pid_file.c_str(), 0666));
    EXPECT_EQ(tick("futex")[0],
              "log HOSTBASE: file_watcher_timer_handle Couldn't open file_watch_thread.pid");
    std::filesystem::remove(pid_file);
    write_file(directory() + "/other.pid", "pid:11 tid:22");
    std::filesystem::create_symlink(directory() + "/other.pid", pid_file);
    EXPECT_EQ(tick("futex")[0],
              "log HOSTBASE: file_watcher_timer_handle Couldn't open file_watch_thread.pid");
}

TEST_F(Watchdog, WithoutTheThread_EndsTheDaemonAtOnce) {
    EXPECT_THAT(tick(), ENDS_THE_DAEMON);
}

TEST_F(Watchdog, PidFileWithoutNumbers_NamesNoThread) {
    for (const char *text : {"", "garbage", "pid:11", "pid: tid:22"}) {
        write_file(pid_file, text);
        EXPECT_THAT(tick("inotify_read"), ENDS_THE_DAEMON) << text;
    }
}

TEST_F(Watchdog, WchanThatCannotBeOpened_IsLoggedAndCountsAsElsewhere) {
    file_watch_block_count = 2;
    // A socket is there for access(), and cannot be opened.
    std::filesystem::create_directories(directory() + "/11/task/22");
    const std::string path = wchan();
    ASSERT_EQ(mknod(path.c_str(), S_IFSOCK | 0600, 0), 0);
    EXPECT_THAT(tick(),
                ElementsAre("log HOSTBASE: file_watcher_timer_handle Couldn't open file_watch_thread wchan"));
    EXPECT_EQ(file_watch_block_count, 0);
}

TEST_F(Watchdog, Handle_LooksAtTheRealPlaces) {
    write_file("/var/tmp/file_watch_thread.pid",
               trace::format("pid:%d tid:%d", static_cast<int>(getpid()), static_cast<int>(gettid())));
    file_watch_block_count = 3;
    file_watcher_timer_handle({});
    EXPECT_THAT(trace::take(), ElementsAre());
    EXPECT_EQ(file_watch_block_count, 0);
}

// --- the timer ---

TEST_F(Watchdog, Set_ArmsATimerOf30Seconds) {
    static const pthread_t thread = pthread_self();
    file_watcher_timer_set(&thread);
    const int timer = fake::next_timer;
    EXPECT_THAT(trace::take(),
                ElementsAre(trace::format("create %d on clock %d", timer, CLOCK_MONOTONIC),
                            trace::format("set %d flags 0 first 30.0 interval 30.0 old 0", timer)));
    EXPECT_EQ(fake::event.sigev_notify, SIGEV_THREAD);
    EXPECT_EQ(fake::event.sigev_signo, SIGRTMIN);
    EXPECT_EQ(fake::event.sigev_value.sival_ptr, &thread);
    EXPECT_EQ(fake::event.sigev_notify_function, file_watcher_timer_handle);
    EXPECT_EQ(fake::event.sigev_notify_attributes, nullptr);
}

TEST_F(Watchdog, NeedsAKernelThatTellsWhereThreadsWait) {
    EXPECT_TRUE(hbs_watchdog_can_look("/proc"));
    const std::string table = directory() + "/table";
    EXPECT_TRUE(hbs_watchdog_can_look(table.c_str())) << "what is not there tells nothing";
    std::filesystem::create_directories(table + "/self/task");
    EXPECT_FALSE(hbs_watchdog_can_look(table.c_str()));
    write_file(table + "/self/wchan", "0");
    EXPECT_TRUE(hbs_watchdog_can_look(table.c_str()));
}

TEST_F(Watchdog, SetTwice_DeletesTheFirstTimer) {
    const pthread_t thread = pthread_self();
    file_watcher_timer_set(&thread);
    const int first = fake::next_timer;
    (void)trace::take();
    file_watcher_timer_set(&thread);
    EXPECT_EQ(trace::take().front(), trace::format("delete %d", first));
    EXPECT_EQ(fake::timers, 1);
}

TEST_F(Watchdog, Set_WhenTheTimerCannotBeCreated_IsLogged) {
    const pthread_t thread = pthread_self();
    file_watcher_timer_set(&thread);
    (void)trace::take();
    fake::create_fails = true;
    file_watcher_timer_set(&thread);
    EXPECT_EQ(trace::take().back(), "log HOSTBASE: file_watcher_timer_set Couldn't create timer");
    EXPECT_EQ(fake::timers, 0);
}

TEST_F(Watchdog, Set_WhenTheTimerCannotBeArmed_DeletesItAgain) {
    const pthread_t thread = pthread_self();
    fake::settime_fails = true;
    file_watcher_timer_set(&thread);
    const auto lines = trace::take();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], "log HOSTBASE: file_watcher_timer_set Couldn't set timer");
    EXPECT_EQ(lines.back(), trace::format("delete %d", fake::next_timer));
    EXPECT_EQ(fake::timers, 0);
}

} // namespace
