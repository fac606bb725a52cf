// What the live page tells: one thread looks, any number of others take what it saw.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

#include "tools/gateway_status.h"
#include "tools/session.h"

struct live_texts {
    uint64_t version = 0; // another one with each news; the uptime alone is none
    std::string page;     // as page_json makes it, on one line
    std::string clients;  // as `list --json` prints them
    std::string metrics;
    std::string failure = "not looked at yet"; // why the database cannot be read now; empty: it can
};

class live_source {
  public:
    explicit live_source(const session &run) : run_(run) {}

    // Looks at the database. Always called by the same thread, which talks to the daemon and heeds signals
    // meanwhile. Throws database_error, by which only the page stays as it was.
    void look();

    // What was seen last: at once when it is another version than `known`, otherwise when there is another
    // one, when the time is over, or at the end.
    live_texts newest(uint64_t known = 0, std::chrono::milliseconds patience = {});

    // From now on nobody waits.
    void end();
    bool has_ended();

  private:
    using clock = std::chrono::steady_clock;
    gateway_status status_now(const database &db);
    void take_news(const database &db);

    // Of the thread that looks:
    const session &run_;
    std::optional<pid_t> asked_; // the daemon that was asked for its mode last; none: there was none
    clock::time_point asked_at_;
    std::optional<bool> routed_; // what it said
    std::string shown_;          // all that is shown, but for what changes by itself

    // Of all threads:
    std::mutex mutex_;
    std::condition_variable news_;
    live_texts texts_;
    bool ended_ = false;
};
