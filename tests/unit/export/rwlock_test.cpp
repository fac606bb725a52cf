// The reader/writer lock of the agent library: who is inside, who waits, and what a waiter prints.
#include <atomic>
#include <cerrno>
#include <thread>

#include "export/rwlock.h"
#include "support/printed.h"

namespace rwlock_test {

std::string message(const std::string &site, const std::string &holder, const std::string &waiter) {
    return "snmpa " + site + " acquire held by " + holder + " : attempt from " + waiter + "\n";
}

size_t count_of(const std::string &text, const std::string &part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

class Rwlock : public GatewayTest {
  protected:
    hbs_lock_record lock_{};

    void SetUp() override {
        GatewayTest::SetUp();
        ASSERT_EQ(0, pthread_mutex_init(&lock_.reader_mutex, nullptr));
        ASSERT_EQ(0, pthread_mutex_init(&lock_.writer_mutex, nullptr));
    }

    static void expect_holder(const hbs_lock_holder &holder, int pid, const std::string &func, int line) {
        EXPECT_EQ(pid, holder.pid);
        EXPECT_EQ(func, holder.func);
        EXPECT_EQ(line, holder.line);
    }

    static void expect_free(const hbs_lock_holder &holder) { expect_holder(holder, 0, "none", 0); }

    static bool is_taken(pthread_mutex_t *mutex) {
        if (pthread_mutex_trylock(mutex) != 0)
            return true;
        pthread_mutex_unlock(mutex);
        return false;
    }
};

// --- one after the other ---

TEST_F(Rwlock, TwoReadersShareAndTheFirstHoldsTheWriterMutex) {
    EXPECT_EQ(0, reader_lock(&lock_, 100, "first", 11));
    EXPECT_EQ(0, reader_lock(&lock_, 200, "second", 22));
    EXPECT_EQ(2, lock_.readers);
    expect_holder(lock_.writer, 100, "first", 11);
    expect_free(lock_.reader);
    EXPECT_FALSE(is_taken(&lock_.reader_mutex));
    EXPECT_TRUE(is_taken(&lock_.writer_mutex));
    EXPECT_EQ(0, reader_unlock(&lock_, 100, "first", 33));
    EXPECT_EQ(1, lock_.readers);
    expect_holder(lock_.writer, 100, "first", 11);
    EXPECT_TRUE(is_taken(&lock_.writer_mutex));
    EXPECT_EQ(0, reader_unlock(&lock_, 200, "second", 44));
    EXPECT_EQ(0, lock_.readers);
    expect_free(lock_.writer);
    expect_free(lock_.reader);
    EXPECT_FALSE(is_taken(&lock_.writer_mutex));
    EXPECT_FALSE(is_taken(&lock_.reader_mutex));
}

TEST_F(Rwlock, WriterIsNotedWhileItHolds) {
    EXPECT_EQ(0, writer_lock(&lock_, 300, "third", 55));
    expect_holder(lock_.writer, 300, "third", 55);
    EXPECT_EQ(0, lock_.readers);
    EXPECT_TRUE(is_taken(&lock_.writer_mutex));
    EXPECT_EQ(0, writer_unlock(&lock_));
    expect_free(lock_.writer);
    EXPECT_FALSE(is_taken(&lock_.writer_mutex));
}

TEST_F(Rwlock, LongFunctionNameIsCutTo255Characters) {
    EXPECT_EQ(0, writer_lock(&lock_, 1, std::string(400, 'f').c_str(), 2));
    expect_holder(lock_.writer, 1, std::string(255, 'f'), 2);
    EXPECT_EQ(0, writer_unlock(&lock_));
}

TEST_F(Rwlock, LastReaderMayLeaveOnAnotherThread) {
    EXPECT_EQ(0, reader_lock(&lock_, 1, "f", 1));
    std::thread([this] { EXPECT_EQ(0, reader_unlock(&lock_, 2, "g", 2)); }).join();
    EXPECT_FALSE(is_taken(&lock_.writer_mutex));
}

// --- mutex errors ---

// A mutex that its owner cannot take twice gives EDEADLK at once.
void make_checking(pthread_mutex_t *mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    ASSERT_EQ(0, pthread_mutex_init(mutex, &attributes));
    pthread_mutexattr_destroy(&attributes);
}

TEST_F(Rwlock, ErrorOfTheReaderMutexFailsBothReaderCalls) {
    make_checking(&lock_.reader_mutex);
    pthread_mutex_lock(&lock_.reader_mutex);
    const Printed printed(directory() + "/printed");
    EXPECT_EQ(-1, reader_lock(&lock_, 1, "f", 1));
    EXPECT_EQ(-1, reader_unlock(&lock_, 1, "f", 1));
    EXPECT_EQ(0, lock_.readers);
    EXPECT_EQ("", printed.text());
}

TEST_F(Rwlock, ErrorOfTheWriterMutexFailsReaderAndWriter) {
    make_checking(&lock_.writer_mutex);
    pthread_mutex_lock(&lock_.writer_mutex);
    const Printed printed(directory() + "/printed");
    EXPECT_EQ(-1, reader_lock(&lock_, 1, "f", 1));
    EXPECT_EQ(0, lock_.readers);
    EXPECT_FALSE(is_taken(&lock_.reader_mutex));
    EXPECT_EQ(-1, writer_lock(&lock_, 1, "f", 1));
    EXPECT_EQ("", printed.text());
}

TEST_F(Rwlock, ReleaseOfAMutexThatIsNotHeldFails) {
    make_checking(&lock_.writer_mutex);
    EXPECT_EQ(-1, writer_unlock(&lock_));
    lock_.readers = 1;
    EXPECT_EQ(-1, reader_unlock(&lock_, 1, "f", 1));
    EXPECT_FALSE(is_taken(&lock_.reader_mutex));
}

// --- contention ---

// A call that has to wait, on a thread of its own.
class RwlockWaiting : public Rwlock {
  protected:
    static constexpr int PATIENCE = 40; // milliseconds
    std::atomic<bool> done_ = false;

    void SetUp() override {
        Rwlock::SetUp();
        EXPECT_EQ(10000u, hbs_lock_set_patience(PATIENCE)); // what holds in the daemon
    }

    // Runs `call`, which waits behind the holder; after the message was printed several times lets go with
    // `release`. Returns what was printed.
    template <typename Call, typename Release> std::string wait_behind(Call call, Release release) {
        const Printed printed(directory() + "/printed");
        std::thread waiter([&] {
            EXPECT_EQ(0, call());
            done_ = true;
        });
        const bool repeated = wait_until([&] { return count_of(printed.text(), "\n") >= 3; });
        EXPECT_TRUE(repeated);
        EXPECT_FALSE(done_); // it prints, but keeps waiting
        release();
        waiter.join();
        EXPECT_TRUE(done_);
        return printed.text();
    }

    static void expect_only(const std::string &text, const std::string &line) {
        EXPECT_LE(3u, count_of(text, line)) << text;
        EXPECT_EQ(count_of(text, "\n"), count_of(text, line)) << text;
    }
};

TEST_F(RwlockWaiting, WriterBehindAReaderPrintsUntilTheLastReaderLeaves) {
    reader_lock(&lock_, 100, "reads", 7);
    reader_lock(&lock_, 101, "reads_too", 8);
    const std::string text = wait_behind([this] { return writer_lock(&lock_, 200, "writes", 9); },
                                         [this] {
                                             reader_unlock(&lock_, 100, "reads", 10);
                                             sleep_milliseconds(2 * PATIENCE);
                                             EXPECT_FALSE(done_);
                                             reader_unlock(&lock_, 101, "reads_too", 11);
                                         });
    expect_only(text, message("writer_lock: timeout on writer", "pid 100, func reads, line 7",
                              "pid 200, func writes, line 9"));
    expect_holder(lock_.writer, 200, "writes", 9);
    EXPECT_EQ(0, writer_unlock(&lock_));
}

TEST_F(RwlockWaiting, WriterBehindAWriter) {
    writer_lock(&lock_, 100, "writes", 7);
    const std::string text = wait_behind([this] { return writer_lock(&lock_, 200, "writes_too", 9); },
                                         [this] { writer_unlock(&lock_); });
    expect_only(text, message("writer_lock: timeout on writer", "pid 100, func writes, line 7",
                              "pid 200, func writes_too, line 9"));
    expect_holder(lock_.writer, 200, "writes_too", 9);
}

TEST_F(RwlockWaiting, FirstReaderBehindAWriter) {
    writer_lock(&lock_, 100, "writes", 7);
    const std::string text = wait_behind([this] { return reader_lock(&lock_, 200, "reads", 9); },
                                         [this] { writer_unlock(&lock_); });
    expect_only(text, message("reader_lock: timeout on writer", "pid 100, func writes, line 7",
                              "pid 200, func reads, line 9"));
    EXPECT_EQ(1, lock_.readers);
    expect_holder(lock_.writer, 200, "reads", 9);
    expect_free(lock_.reader);
}

// A second reader waits for the reader mutex, which the first one keeps while it waits for the writer.
TEST_F(RwlockWaiting, ReaderBehindAReaderThatWaits) {
    writer_lock(&lock_, 100, "writes", 7);
    std::thread first([this] { EXPECT_EQ(0, reader_lock(&lock_, 150, "reads_first", 8)); });
    ASSERT_TRUE(wait_until([this] { return is_taken(&lock_.reader_mutex); }));
    const std::string text = wait_behind([this] { return reader_lock(&lock_, 200, "reads", 9); },
                                         [this] {
                                             sleep_milliseconds(4 * PATIENCE);
                                             writer_unlock(&lock_);
                                         });
    first.join();
    EXPECT_LE(1u, count_of(text, message("reader_lock: timeout on reader",
                                         "pid 150, func reads_first, line 8", "pid 200, func reads, line 9")))
        << text;
    EXPECT_EQ(2, lock_.readers);
    expect_holder(lock_.writer, 150, "reads_first", 8);
}

TEST_F(RwlockWaiting, LeavingReaderBehindTheReaderMutex) {
    reader_lock(&lock_, 100, "reads", 7);
    pthread_mutex_lock(&lock_.reader_mutex);
    const std::string text = wait_behind([this] { return reader_unlock(&lock_, 200, "leaves", 9); },
                                         [this] { pthread_mutex_unlock(&lock_.reader_mutex); });
    expect_only(text, message("reader_unlock: timeout on reader", "pid 0, func none, line 0",
                              "pid 200, func leaves, line 9"));
    EXPECT_EQ(0, lock_.readers);
    EXPECT_FALSE(is_taken(&lock_.writer_mutex));
}

// Readers and writers at once: a writer is always alone.
TEST_F(Rwlock, WriterExcludesEverybody) {
    std::atomic<int> readers = 0;
    std::atomic<int> writers = 0;
    std::atomic<int> clashes = 0;
    auto read = [&] {
        for (int i = 0; i < 500; ++i) {
            EXPECT_EQ(0, reader_lock(&lock_, 1, "reads", i));
            ++readers;
            clashes += writers != 0;
            --readers;
            EXPECT_EQ(0, reader_unlock(&lock_, 1, "reads", i));
        }
    };
    auto write = [&] {
        for (int i = 0; i < 500; ++i) {
            EXPECT_EQ(0, writer_lock(&lock_, 2, "writes", i));
            clashes += writers++ != 0 || readers != 0;
            --writers;
            EXPECT_EQ(0, writer_unlock(&lock_));
        }
    };
    std::thread threads[] = {std::thread(read), std::thread(write), std::thread(read), std::thread(write)};
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(0, clashes);
    expect_free(lock_.writer);
    EXPECT_EQ(0, lock_.readers);
}

TEST_F(Rwlock, ListLockIsAPlainMutexThatNeedsNoInitialisation) {
    EXPECT_FALSE(is_taken(&listlock));
    ASSERT_EQ(0, pthread_mutex_lock(&listlock));
    EXPECT_TRUE(is_taken(&listlock));
    EXPECT_EQ(0, pthread_mutex_unlock(&listlock));
}

} // namespace rwlock_test
