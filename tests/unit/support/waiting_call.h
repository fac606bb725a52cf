// A call on a thread of its own that is expected to wait for something.
#pragma once

#include <atomic>
#include <fstream>
#include <functional>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "support/gateway.h"

class WaitingCall {
  public:
    explicit WaitingCall(std::function<void()> call)
        : thread_([this, call = std::move(call)] {
              id_ = static_cast<int>(syscall(SYS_gettid));
              call();
              done_ = true;
          }) {}
    ~WaitingCall() {
        if (thread_.joinable())
            thread_.join();
    }
    WaitingCall(const WaitingCall &) = delete;
    WaitingCall &operator=(const WaitingCall &) = delete;

    // Whether the call is found asleep several times before it is done. One that polls is awake in between.
    bool is_waiting() const {
        int asleep = 0;
        return wait_until([&] {
                   asleep += state() == 'S';
                   return asleep >= 5 || done_;
               }) &&
               !done_;
    }

    void join() { thread_.join(); }

  private:
    // The kernel's word for what the thread does: the letter behind the name, which stands in brackets.
    char state() const {
        std::ifstream file("/proc/self/task/" + std::to_string(id_) + "/stat");
        std::string line;
        (void)std::getline(file, line);
        const size_t name_end = line.rfind(')');
        return name_end == std::string::npos || name_end + 2 >= line.size() ? '?' : line[name_end + 2];
    }

    std::atomic<int> id_{0};
    std::atomic<bool> done_{false};
    std::thread thread_;
};
