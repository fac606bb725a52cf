// The watch on notification files: emptied at the start, handlers called on each close, watches that
// survive the file.
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "base/paths.h"
#include "daemon/file_watch.h"
#include "support/command_fakes.h"
#include "support/gateway.h"

extern "C" int WifiGetSSID(const uint8_t *, uint32_t *) {
    return -1;
}

using testing::ElementsAre;

namespace {

bool handler_fails = false;

// Traces what it is called for and empties the file, as a taker of notifications does.
bool handle(const char *path) {
    if (handler_fails) {
        trace::add(std::string("fail ") + std::filesystem::path(path).filename().string());
        close(
            open(path, O_WRONLY |
                           O_NONBLOCK)); // a close as an event, as of a taker that opened the file and failed
        return false;
    }
    const std::string text = read_file(path);
    if (!text.empty()) {
        trace::add(std::string("handle ") + std::filesystem::path(path).filename().string() + " " + text);
        std::ofstream(path, std::ios::trunc).close();
    }
    return true;
}

class FileWatch : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        hbs_list_mutex_init();
        first = directory() + "/first";
        second = directory() + "/second";
        table[0] = {first.c_str(), -1, IN_CLOSE_WRITE, handle};
        table[1] = {second.c_str(), -1, IN_CLOSE_WRITE, handle};
        table[2] = {nullptr, -1, 0, nullptr};
        (void)trace::take();
    }

    void TearDown() override {
        if (descriptor >= 0)
            (void)close(descriptor);
        GatewayTest::TearDown();
    }

    void open_watches() {
        descriptor = hbs_file_watch_open(table);
        ASSERT_GE(descriptor, 0);
        (void)trace::take();
    }

    // Reads until something that contains `part` was traced; returns all that was.
    trace::list events_until(const std::string &part) {
        trace::list lines;
        for (int i = 0; i < 100; i++) {
            hbs_file_watch_read(descriptor, table);
            for (const std::string &line : trace::take()) {
                lines.push_back(line);
                if (line.find(part) != std::string::npos)
                    return lines;
            }
        }
        ADD_FAILURE() << "no " << part;
        return lines;
    }

    // Reads for as long as there are events; returns what was traced.
    trace::list events() {
        pollfd ready = {descriptor, POLLIN, 0};
        while (poll(&ready, 1, 50) > 0)
            hbs_file_watch_read(descriptor, table);
        return trace::take();
    }

    std::string first;
    std::string second;
    hbs_watch_entry table[3] = {};
    int descriptor = -1;
};

std::string emptied(const std::string &path) {
    return "log HOSTBASE: creating/truncating file for inotify: " + path;
}

TEST_F(FileWatch, Open_CreatesAndEmptiesTheFiles) {
    write_file(second, "written before the daemon started");
    descriptor = hbs_file_watch_open(table);
    ASSERT_GE(descriptor, 0);
    EXPECT_THAT(trace::take(), ElementsAre(emptied(first), emptied(second)));
    EXPECT_TRUE(file_exists(first));
    EXPECT_EQ(read_file(second), "");
    EXPECT_GE(table[0].wd, 0);
    EXPECT_GE(table[1].wd, 0);
    EXPECT_NE(table[0].wd, table[1].wd);
}

TEST_F(FileWatch, Open_StopsAtAnEntryWithoutHandler) {
    table[0].handler = nullptr;
    EXPECT_EQ(hbs_file_watch_open(table), -1);
    EXPECT_THAT(trace::take(), ElementsAre("log HOSTBASE: all watchers failed!"));
    EXPECT_FALSE(file_exists(second));
}

TEST_F(FileWatch, Open_WithAFileThatCannotBeCreated_WatchesTheOthers) {
    const std::string missing = directory() + "/missing/file";
    table[0].path = missing.c_str();
    descriptor = hbs_file_watch_open(table);
    ASSERT_GE(descriptor, 0);
    EXPECT_THAT(trace::take(), ElementsAre("log HOSTBASE: error creating/truncating file(" + missing +
                                               ") for inotify: No such file or directory",
                                           "log HOSTBASE: error adding inotify watch on " + missing +
                                               " with mask 8: No such file or directory",
                                           emptied(second)));
    EXPECT_EQ(table[0].wd, -1);
    write_file(second, "news");
    EXPECT_THAT(events(), ElementsAre("handle second news"));
}

TEST_F(FileWatch, Open_WithoutAnyWatch_Fails) {
    const std::string missing = directory() + "/missing/file";
    table[0].path = missing.c_str();
    table[1].path = nullptr;
    EXPECT_EQ(hbs_file_watch_open(table), -1);
    EXPECT_EQ(trace::take().back(), "log HOSTBASE: all watchers failed!");
}

TEST_F(FileWatch, Open_WithoutADescriptor_Fails) {
    rlimit old{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &old), 0);
    const rlimit none = {0, old.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const int result = hbs_file_watch_open(table);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &old), 0);
    EXPECT_EQ(result, -1);
    EXPECT_THAT(trace::take(),
                ElementsAre("log HOSTBASE: error initializing inotify instance: Too many open files"));
}

TEST_F(FileWatch, ClosedFile_IsHandledByItsOwnHandler) {
    open_watches();
    write_file(second, "news");
    EXPECT_THAT(events(), ElementsAre("handle second news"));
    write_file(first, "more");
    EXPECT_THAT(events(), ElementsAre("handle first more"));
}

TEST_F(FileWatch, SeveralEventsInOneRead_AreAllHandled) {
    open_watches();
    for (int i = 0; i < 20; i++)
        std::ofstream(i % 2 == 0 ? first : second, std::ios::app) << i << ",";
    hbs_file_watch_read(descriptor, table);
    EXPECT_THAT(trace::take(), ElementsAre("handle first 0,2,4,6,8,10,12,14,16,18,",
                                           "handle second 1,3,5,7,9,11,13,15,17,19,"));
}

TEST_F(FileWatch, FileThatIsOnlyRead_IsNoEvent) {
    open_watches();
    (void)read_file(first);
    EXPECT_THAT(events(), ElementsAre());
}

std::string again(const std::string &path) {
    return "log HOSTBASE: watched file " + path + " was removed or replaced - watch it again";
}

TEST_F(FileWatch, DeletedFile_IsCreatedAndWatchedAgain) {
    open_watches();
    std::filesystem::remove(first);
    EXPECT_THAT(events(), ElementsAre(again(first)));
    EXPECT_TRUE(file_exists(first));
    write_file(first, "news");
    EXPECT_THAT(events(), ElementsAre("handle first news"));
}

TEST_F(FileWatch, ReplacedFile_IsHandledAndWatchedAgain) {
    open_watches();
    write_file(directory() + "/new", "news");
    std::filesystem::rename(directory() + "/new", first);
    EXPECT_THAT(events(), ElementsAre(again(first), "handle first news"));
    write_file(first, "more");
    EXPECT_THAT(events(), ElementsAre("handle first more"));
}

TEST_F(FileWatch, FileWhoseDirectoryIsGone_IsLogged) {
    const std::string place = directory() + "/place";
    const std::string path = place + "/file";
    std::filesystem::create_directory(place);
    table[0].path = path.c_str();
    open_watches();
    std::filesystem::remove_all(place);
    EXPECT_THAT(events(), ElementsAre(again(path), "log HOSTBASE: error adding inotify watch on " + path +
                                                       " with mask 8: No such file or directory"));
    write_file(second, "news");
    EXPECT_THAT(events(), ElementsAre("handle second news"));
}

using clock_type = std::chrono::steady_clock;

TEST_F(FileWatch, DirectoryThatIsMadeAgain_IsWatchedAgain) {
    const std::string place = directory() + "/place";
    const std::string path = place + "/file";
    std::filesystem::create_directory(place);
    table[0].path = path.c_str();
    open_watches();
    std::filesystem::remove_all(place);
    EXPECT_THAT(events(), testing::Contains(again(path)));
    EXPECT_EQ(table[0].wd, -1);
    std::filesystem::create_directory(place);
    write_file(path, "news");
    EXPECT_THAT(
        events_until("handle file"),
        ElementsAre("log HOSTBASE: file " + path + " is there again and watched", "handle file news"));
    write_file(path, "more");
    EXPECT_THAT(events(), ElementsAre("handle file more"));
}

TEST_F(FileWatch, DirectoryThatComesLater_IsWatched) {
    const std::string path = directory() + "/later/file";
    table[0].path = path.c_str();
    open_watches();
    std::filesystem::create_directory(directory() + "/later");
    (void)events_until("is there again and watched");
    EXPECT_TRUE(file_exists(path));
    write_file(path, "news");
    EXPECT_THAT(events(), ElementsAre("handle file news"));
}

// A writer that has it open keeps the file alive, and would keep the watch on it.
TEST_F(FileWatch, FileThatIsRemovedWhileItIsOpen_IsWatchedAgain) {
    open_watches();
    const int writer = open(first.c_str(), O_WRONLY);
    std::filesystem::remove(first);
    EXPECT_THAT(events(), ElementsAre(again(first)));
    write_file(first, "news");
    EXPECT_THAT(events(), ElementsAre("handle first news"));
    std::filesystem::rename(first, first + ".old");
    EXPECT_THAT(events(), ElementsAre(again(first)));
    write_file(first, "more");
    EXPECT_THAT(events(), ElementsAre("handle first more"));
    close(writer);
}

TEST_F(FileWatch, ChangeOfModeOrOwner_IsNoEvent) {
    open_watches();
    std::filesystem::permissions(first, std::filesystem::perms::owner_all);
    EXPECT_THAT(events(), ElementsAre());
}

// A handler that fails is called again after a second, not for the event that its own close makes.
TEST_F(FileWatch, HandlerThatFails_IsCalledAgainAfterASecond) {
    open_watches();
    handler_fails = true;
    const auto start = clock_type::now();
    write_file(second, "news");
    EXPECT_THAT(events(), ElementsAre("fail second"));
    EXPECT_THAT(events_until("fail"), ElementsAre("fail second"));
    EXPECT_GE(clock_type::now() - start, std::chrono::milliseconds(HBS_WATCH_RETRY));
    handler_fails = false;
    EXPECT_THAT(events_until("handle"), ElementsAre("handle second news"));
    write_file(second, "more");
    EXPECT_THAT(events(), ElementsAre("handle second more"));
}

TEST_F(FileWatch, FifoInAFilesPlace_HoldsNobodyAndIsReplacedWhenItIsGone) {
    ASSERT_EQ(mkfifo(first.c_str(), 0666), 0);
    handler_fails = true; // as the taker of notifications does for a FIFO
    descriptor = hbs_file_watch_open(table);
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(trace::take()[0], "log HOSTBASE: error creating/truncating file(" + first +
                                    ") for inotify: No such device or address");
    handler_fails = false;
    std::filesystem::remove(first);
    EXPECT_THAT(events(), ElementsAre(again(first)));
    write_file(first, "news");
    EXPECT_THAT(events_until("handle"), ElementsAre("handle first news"));
}

TEST_F(FileWatch, LinkInAFilesPlace_LeavesItsTargetAsItIs) {
    write_file(directory() + "/victim", "precious");
    std::filesystem::create_symlink(directory() + "/victim", first);
    table[0].handler = [](const char *) { return true; };
    descriptor = hbs_file_watch_open(table);
    EXPECT_EQ(trace::take()[0], "log HOSTBASE: error creating/truncating file(" + first +
                                    ") for inotify: Too many levels of symbolic links");
    EXPECT_EQ(read_file(directory() + "/victim"), "precious");
}

TEST_F(FileWatch, Overflow_LooksAtEveryFile) {
    open_watches();
    std::ifstream limit("/proc/sys/fs/inotify/max_queued_events");
    int events_at_most = 0;
    limit >> events_at_most;
    if (events_at_most <= 0 || events_at_most > 100000)
        GTEST_SKIP() << "a queue of " << events_at_most << " events";
    // Equal events that follow each other count as one, so the files take turns.
    for (int i = 0; i <= events_at_most / 2; i++) {
        close(open(first.c_str(), O_WRONLY));
        close(open(second.c_str(), O_WRONLY));
    }
    std::ofstream(second) << "lost";
    const auto lines = events();
    EXPECT_THAT(lines,
                testing::Contains("log HOSTBASE: inotify queue overflow - look at every watched file"));
    EXPECT_THAT(lines, testing::Contains("handle second lost"));
}

// --- the thread ---

TEST_F(FileWatch, Identify_WritesProcessAndThread) {
    hbs_file_watch_identify();
    EXPECT_EQ(read_file(HBS_FILE_WATCH_PID), trace::format("pid:%d tid:%d", static_cast<int>(getpid()),
                                                           static_cast<int>(syscall(SYS_gettid))));
    EXPECT_THAT(trace::take(), ElementsAre());
}

TEST_F(FileWatch, Identify_ReplacesAFifoOrALink) {
    std::filesystem::remove(HBS_FILE_WATCH_PID);
    ASSERT_EQ(mkfifo(HBS_FILE_WATCH_PID, 0666), 0);
    hbs_file_watch_identify();
    EXPECT_TRUE(read_file(HBS_FILE_WATCH_PID).starts_with("pid:"));
    std::filesystem::remove(HBS_FILE_WATCH_PID);
    write_file(directory() + "/victim", "precious");
    std::filesystem::create_symlink(directory() + "/victim", HBS_FILE_WATCH_PID);
    hbs_file_watch_identify();
    EXPECT_TRUE(read_file(HBS_FILE_WATCH_PID).starts_with("pid:"));
    EXPECT_EQ(read_file(directory() + "/victim"), "precious");
    struct stat status = {};
    ASSERT_EQ(stat(HBS_FILE_WATCH_PID, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(FileWatch, Identify_WhenTheFileCannotBeCreated_IsLogged) {
    std::filesystem::remove(HBS_FILE_WATCH_PID);
    std::filesystem::create_directory(HBS_FILE_WATCH_PID);
    hbs_file_watch_identify();
    std::filesystem::remove(HBS_FILE_WATCH_PID);
    EXPECT_THAT(trace::take(), ElementsAre("log HOSTBASE: error creating /var/tmp/file_watch_thread.pid"));
}

TEST_F(FileWatch, Thread_HandlesBothNotificationFiles) {
    fake::reset();
    hbs_db_ready = 1;
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, nullptr, file_watch_thread, nullptr), 0);
    trace::list lines;
    const auto traced = [&lines](const std::string &part) {
        return wait_until([&] {
            for (auto &line : trace::take())
                lines.push_back(line);
            return std::any_of(lines.begin(), lines.end(),
                               [&](const std::string &line) { return line.find(part) != std::string::npos; });
        });
    };
    ASSERT_TRUE(traced("creating/truncating file for inotify: /var/lib/dibbler/server-notify.log"));
    std::ofstream("/var/tmp/udhcpd.delta") << "DEL 02:aa:00:00:00:11 192.168.0.10 60 00 00 1 0\n";
    EXPECT_TRUE(traced("locked dhcpv4 release 02:aa:00:00:00:11 192.168.0.10 1 60"));
    std::ofstream("/var/lib/dibbler/server-notify.log") << "event RELEASE\nlinkAddr fe80::11\n";
    EXPECT_TRUE(traced("locked dhcpv6 release none fe80::11 ::"));
    EXPECT_EQ(read_file("/var/tmp/udhcpd.delta"), "");
    EXPECT_TRUE(
        read_file(HBS_FILE_WATCH_PID).starts_with(trace::format("pid:%d tid:", static_cast<int>(getpid()))));
    (void)pthread_detach(thread); // it has no end
}

} // namespace
