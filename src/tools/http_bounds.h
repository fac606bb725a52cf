// What one who asks an HTTP server may take of it.
#pragma once

#include <chrono>
#include <cstddef>

struct http_bounds {
    size_t head_bytes = 16384; // of a request; one without a body has no others
    std::chrono::milliseconds read_patience = std::chrono::seconds(5);   // with a peer that sends nothing
    std::chrono::milliseconds write_patience = std::chrono::seconds(10); // with one that takes nothing
};
