// Sockets to the access points' control sockets.
#pragma once

#include <sys/types.h>

// Removes what an earlier process left behind.
void linux_control_clean();

// Whether a name in the directory of hostapd's sockets is the socket of a device of this machine. Those of no
// device, as the one for all of a process, are no access points.
bool linux_control_is_there(const char *name);

// Whoever connects has an address of his own, so that an answer that comes late, to a question of an earlier
// connection, is taken for none of this one's. Returns the descriptor, or -1.
int linux_control_open(const char *name, unsigned connection);
void linux_control_close(int fd, const char *name, unsigned connection);

// One datagram into text, and a NUL behind it; size counts that too. Returns its length, -1 when none comes
// in time or nobody is at the other end.
ssize_t linux_control_receive(int fd, char *text, size_t size, int timeout_ms);
