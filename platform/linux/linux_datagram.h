// One datagram to a Unix socket, never waited for.
#pragma once

#include <cstddef>

// path: a leading '@' stands for the abstract space. Returns whether somebody got it.
bool linux_datagram_send(const char *path, const char *text, size_t length);
