// One datagram to a Unix socket.
#pragma once

#include <cstddef>

// path: a leading '@' stands for the abstract space. seconds: how long a receiver whose queue is full is
// waited for, 0 = never. Returns whether somebody got it.
bool linux_datagram_send(const char *path, const char *text, size_t length, unsigned seconds);
