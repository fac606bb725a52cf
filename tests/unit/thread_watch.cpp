// Notes when a test starts a thread. Its file has then to be one of those that are built for the thread
// sanitizer too.
#include <algorithm>
#include <atomic>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <string>

namespace {

std::atomic<bool> started;

const std::string threaded[] = {
#include "threaded.inc"
};

class Watch : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &) override { started = false; }
    void OnTestEnd(const testing::TestInfo &test) override {
        const std::string file = test.file();
        const bool known = std::any_of(std::begin(threaded), std::end(threaded),
                                       [&](const std::string &name) { return file.ends_with(name); });
        if (started && !known)
            ADD_FAILURE() << file << " starts a thread, which tests/race/starts_threads does not see";
    }
};

[[maybe_unused]] const bool watches = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new Watch);
    return true;
}();

} // namespace

// In front of the C library's.
extern "C" int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*entry)(void *),
                              void *argument) noexcept {
    using call = int (*)(pthread_t *, const pthread_attr_t *, void *(*)(void *), void *);
    static const call next = reinterpret_cast<call>(dlsym(RTLD_NEXT, "pthread_create"));
    started = true;
    return next(thread, attributes, entry, argument);
}
