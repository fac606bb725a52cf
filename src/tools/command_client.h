// Sends one datagram to the daemon and waits for its answer.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "tools/requests.h"

// The daemon could not be reached, or did not answer.
struct daemon_error : std::runtime_error {
    enum kind { not_there, no_answer, failed };
    kind why;
    daemon_error(kind k, const std::string &text) : std::runtime_error(text), why(k) {}
};

// Sends an event, which is not answered. Throws daemon_error.
void send_event(const datagram &message, const std::string &socket_path);

// Sends a command from a socket with a private path of its own, which is removed again whatever
// happens, and gives the answer. Throws daemon_error when none came within `seconds`. SIGINT, SIGTERM
// and SIGHUP end the wait and, once the path is removed, the process.
int32_t send_command(const datagram &message, const std::string &socket_path, double seconds);

// Asks another program in the same way, one that answers in words. None when it does not, or when this user
// may not ask.
std::optional<std::string> ask_in_words(const std::string &question, const std::string &socket_path,
                                        double seconds);

// Whether somebody receives on the command socket; true as well when this user may not ask. Throws
// daemon_error when that cannot be found out.
bool daemon_is_there(const std::string &socket_path);
