// Serves the live page, and what it shows as JSON and as metrics, over HTTP. Nothing can be changed through
// it.
#pragma once

#include <memory>

#include "tools/http_bounds.h"
#include "tools/listen_address.h"
#include "tools/live_source.h"

class page_server {
  public:
    // Takes the address. Throws run_error.
    page_server(const listen_address &where, live_source &source, const http_bounds &bounds = {});

    // Ends all connections.
    ~page_server();
    page_server(const page_server &) = delete;
    page_server &operator=(const page_server &) = delete;

    // Whether nobody is listened to any more: the socket failed.
    bool has_ended() const;

    // Where it is, with the port that was found when none was given.
    const listen_address &address() const;

  private:
    struct parts;
    std::unique_ptr<parts> parts_;
};
