#include "tools/listen_address.h"

#include <charconv>

#include "tools/words.h"

namespace {

constexpr const char *loopback_address = "127.0.0.1";

// "HOST", "HOST:PORT", "[IPV6]" or "[IPV6]:PORT", taken apart; the port may be missing.
struct host_and_port {
    std::string host, port;
};

std::optional<host_and_port> split(const std::string &text) {
    const bool bracket = text.starts_with("[");
    const size_t end = bracket ? text.find(']') : text.find(':');
    if (bracket && end == std::string::npos)
        return std::nullopt;
    const std::string host = bracket ? text.substr(1, end - 1) : text.substr(0, end);
    const std::string rest = end == std::string::npos ? "" : text.substr(bracket ? end + 1 : end);
    if (rest.empty())
        return host_and_port{host, ""};
    return rest.size() > 1 && rest[0] == ':' ? std::optional(host_and_port{host, rest.substr(1)})
                                             : std::nullopt;
}

std::optional<int> parse_port(const std::string &text) {
    unsigned port = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool whole = error == std::errc() && stop == text.data() + text.size();
    return whole && port <= UINT16_MAX ? std::optional(static_cast<int>(port)) : std::nullopt;
}

} // namespace

std::optional<listen_address> parse_listen_address(const std::string &text) {
    const auto parts = split(text);
    if (!parts)
        return std::nullopt;
    const auto port = parts->port.empty() ? std::optional(usual_port) : parse_port(parts->port);
    const std::string host = parts->host.empty() ? loopback_address : parts->host;
    return port && parse_ip(host) ? std::optional(listen_address{host, *port}) : std::nullopt;
}

std::string url_of(const listen_address &address) {
    const bool v6 = address.host.find(':') != std::string::npos;
    return "http://" + (v6 ? "[" + address.host + "]" : address.host) + ":" + std::to_string(address.port) +
           "/";
}

bool is_trusted_host(const std::string &line) {
    const auto parts = split(line);
    return parts && (parts->port.empty() || parse_port(parts->port)) &&
           (parts->host == "localhost" || parse_ip(parts->host));
}
