// Whether the gateway routes or bridges, which only the daemon itself knows.
#pragma once

#include <string>

// Asks with two commands that change nothing and would be answered differently by a daemon that takes
// commands; in bridge mode it repeats one answer instead. Throws daemon_error.
bool is_routed(const std::string &socket_path, double seconds);
