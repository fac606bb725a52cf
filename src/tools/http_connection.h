// A connection of the page's server, as the HTTP library reads and writes it. It is closed with it.
#pragma once

#include <array>
#include <httplib.h>

#include "tools/http_bounds.h"

struct http_peer {
    int socket;
    std::chrono::steady_clock::time_point since; // he is there
};

class http_connection : public httplib::Stream {
  public:
    // Nothing is waited for once `end`, a descriptor, has something to read.
    http_connection(const http_peer &peer, const http_bounds &bounds, int end)
        : socket_(peer.socket), end_(end), bounds_(bounds), head_until_(peer.since + bounds.head_time),
          left_(bounds.head_bytes) {}
    ~http_connection() override;
    http_connection(const http_connection &) = delete;
    http_connection &operator=(const http_connection &) = delete;

    // The request is there. Until then an answer is only that it cannot be understood.
    void limit_answer() { answer_until_ = clock::now() + bounds_.answer_time; }

    bool is_readable() const override;
    bool is_writable() const override;
    ssize_t read(char *data, size_t size) override;
    ssize_t write(const char *data, size_t size) override;
    void get_remote_ip_and_port(std::string &, int &) const override {} // nothing here depends on them
    void get_local_ip_and_port(std::string &, int &) const override {}
    socket_t socket() const override { return socket_; }

  private:
    using clock = std::chrono::steady_clock;
    bool wait_for(short what, clock::time_point until) const;
    bool fill();

    int socket_, end_;
    const http_bounds &bounds_;
    const clock::time_point head_until_;
    clock::time_point answer_until_ = clock::time_point::max();
    std::array<char, 2048> block_ = {}; // what the library takes byte by byte
    size_t taken_ = 0, there_ = 0;
    size_t left_; // that may still be received
};
