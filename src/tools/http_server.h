// An HTTP server that takes its connections itself: the library binds, understands requests and answers
// them.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tools/http_connection.h"

class http_server : public httplib::Server {
  public:
    // The answer to `endless`, a path, goes on for as long as it is taken. Throws run_error.
    http_server(const http_bounds &bounds, const std::string &endless);

    // Whoever follows has been told to end. Ends all connections.
    ~http_server() override;
    http_server(const http_server &) = delete;
    http_server &operator=(const http_server &) = delete;

    // Takes connections from now on, where it was bound; that many are served at a time.
    void start(unsigned workers);

    // Whether nobody is listened to any more: the socket failed.
    bool has_ended() const { return ended_; }

  private:
    void listen_on();
    void take_connection();
    bool may_wait(int socket);
    bool still_listens() const;
    void work();
    std::optional<http_peer> next_peer();
    void serve(const http_peer &peer);

    const http_bounds bounds_;
    const std::string endless_;
    const int end_; // descriptor; there is something to read from it at the end
    std::atomic<bool> ended_ = false;
    std::thread listener_;
    std::vector<std::thread> workers_;

    // Of all threads:
    std::mutex mutex_;
    std::condition_variable news_;
    std::deque<http_peer> waiting_;
    bool ends_ = false;
};
