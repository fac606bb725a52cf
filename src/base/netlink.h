// Routing netlink on the kernel's own macros: sockets, requests, and the walk over what is received. Every
// length that stands in received bytes is checked before it is used, and the bytes need no alignment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/types.h>

// --- sockets: failures leave their reason in errno ---

// Close-on-exec. Returns the socket, or -1.
int hbs_netlink_open();

// groups: mask of the multicast groups to join (RTMGRP_...), 0 = none. The kernel chooses the port id.
bool hbs_netlink_bind(int socket, uint32_t groups);

// The port id of a bound socket, which the kernel's answers carry; 0 when it is not bound.
uint32_t hbs_netlink_port(int socket);

// Asks for the neighbour table of a family (AF_UNSPEC = all).
bool hbs_netlink_request_neighbours(int socket, int family, uint32_t sequence);

// The next datagram of the kernel; what other processes send is passed over. timeout_ms negative = no end to
// the wait. Returns its length, or -1: ETIMEDOUT, ENOSPC when it did not fit, or what recvmsg says.
ssize_t hbs_netlink_receive(int socket, void *buffer, size_t size, int timeout_ms);

// --- bytes ---

struct hbs_netlink_bytes {
    const uint8_t *data; // null = not there
    size_t size;
};

struct hbs_netlink_message {
    nlmsghdr head;
    hbs_netlink_bytes whole; // with its header
};

// Takes the first message off `rest`. Returns false at the end and where a message is cut short.
bool hbs_netlink_next(hbs_netlink_bytes *rest, hbs_netlink_message *out);

// Fills table[0..highest] by attribute type; what is missing stays as it was, higher types are skipped, of a
// repeated one the last counts. An attribute that is cut short ends the list.
void hbs_netlink_attributes(hbs_netlink_bytes bytes, hbs_netlink_bytes table[], int highest);

struct hbs_neighbour {
    ndmsg header;
    hbs_netlink_bytes attributes[NDA_PROBES + 1]; // by NDA_...
};

// message: whole, with its header. Returns whether there is a neighbour header in it.
bool hbs_netlink_neighbour(hbs_netlink_bytes message, hbs_neighbour *out);

// --- walks ---

using hbs_netlink_visit = void (*)(hbs_netlink_bytes message, void *context);

// Visits the data messages of one datagram. Returns 1, 0 after the end of a multi-part answer (or a plain
// acknowledgement), or -1 with errno for an error message and for a dump that was disturbed (EINTR).
int hbs_netlink_walk(hbs_netlink_bytes datagram, hbs_netlink_visit visit, void *context);

// Visits a whole neighbour table. Returns whether it was read to its end; errno says why not.
bool hbs_netlink_dump_neighbours(int family, hbs_netlink_visit visit, void *context);
