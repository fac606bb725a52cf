// How log lines describe the sender of a datagram.
#pragma once

#include <sys/socket.h>

struct hbs_sender_tag {
    char text[48];
};

// address: as received, zeroed before the receive. length: as the receive returned it; 0 for a sender
// that is bound to no path, which then shows as "len -2".
hbs_sender_tag hbs_sender_tag_of(const sockaddr_storage *address, socklen_t length);
