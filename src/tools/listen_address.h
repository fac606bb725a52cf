// Where the page is served, and by which names it may be asked for.
#pragma once

#include <optional>
#include <string>

constexpr int usual_port = 8080;

struct listen_address {
    std::string host; // an IP address, without brackets
    int port = 0;     // 0: any free one
};

// "127.0.0.1:8080", "[::1]:8080", ":8080", or "127.0.0.1" for the usual port.
std::optional<listen_address> parse_listen_address(const std::string &text);

// "http://127.0.0.1:8080/"
std::string url_of(const listen_address &address);

// Whether a request with this Host line may be answered: it names an IP address, or localhost. A name that a
// stranger chose may lead here, too, and his page would then read ours as its own.
bool is_trusted_host(const std::string &line);
