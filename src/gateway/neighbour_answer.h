// Reads the kernel's answer to a neighbour query from its bytes; every length is checked before use.
#pragma once

#include <cstddef>
#include <cstdint>

// Whether a datagram is (part of) the answer to the request of that sequence number from that port id. The
// kernel does not mix answers and notifications in one datagram.
bool hbs_is_answer(const uint8_t *bytes, size_t length, uint32_t sequence, uint32_t port);

// Looks through one received datagram for a reachable entry of the address (4 bytes for AF_INET, 16 for
// AF_INET6). Returns 0 and fills mac_out (6 bytes), or -1.
int hbs_find_lladdr(const uint8_t *bytes, size_t length, uint32_t sequence, int family,
                    const uint8_t *address, uint8_t *mac_out);
