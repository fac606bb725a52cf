// What one who asks an HTTP server may take of it.
#pragma once

#include <chrono>
#include <cstddef>

struct http_bounds {
    // Connections that nobody has time for yet; others are closed.
    unsigned most_waiting = 64;

    // Of a request; one without a body has no others.
    size_t head_bytes = 16384;

    // From the beginning of a connection until its request is there.
    std::chrono::milliseconds head_time = std::chrono::seconds(8);

    // With one that takes nothing of what is written.
    std::chrono::milliseconds write_patience = std::chrono::seconds(10);

    // From its request until the whole of an answer that has an end was taken.
    std::chrono::milliseconds answer_time = std::chrono::seconds(60);
};
