// What the kernel says, changed so that it still reads as messages and attributes: of bytes alone hardly any
// lengths fit. Every other change leaves the lengths as they fall.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <linux/neighbour.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

// The fuzzer's own; there is none where inputs are only replayed.
extern "C" __attribute__((weak)) size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t most);

// How much stands before the attributes of a message.
inline size_t fuzz_netlink_body(uint16_t type) {
    switch (type) {
    case RTM_NEWLINK:
        return sizeof(ifinfomsg);
    case RTM_NEWADDR:
        return sizeof(ifaddrmsg);
    case RTM_NEWROUTE:
        return sizeof(rtmsg);
    default:
        return sizeof(ndmsg);
    }
}

// A length that goes beyond its place, or not over its own head, becomes what is left.
template <typename Length> size_t fuzz_netlink_fit(uint8_t *place, size_t least, size_t left) {
    Length length;
    memcpy(&length, place, sizeof length);
    if (length < least || length > left)
        length = static_cast<Length>(left);
    memcpy(place, &length, sizeof length);
    return std::min<size_t>(NLMSG_ALIGN(length), left);
}

inline void fuzz_netlink_fit_attributes(uint8_t *at, size_t left) {
    while (left >= sizeof(rtattr)) {
        const size_t length =
            fuzz_netlink_fit<uint16_t>(at, sizeof(rtattr), std::min<size_t>(left, UINT16_MAX));
        at += length;
        left -= length;
    }
}

inline void fuzz_netlink_fit_messages(uint8_t *at, size_t left) {
    while (left >= sizeof(nlmsghdr)) {
        const size_t length = fuzz_netlink_fit<uint32_t>(at, sizeof(nlmsghdr), left);
        nlmsghdr head;
        memcpy(&head, at, sizeof head);
        const size_t before = NLMSG_HDRLEN + NLMSG_ALIGN(fuzz_netlink_body(head.nlmsg_type));
        if (head.nlmsg_len > before)
            fuzz_netlink_fit_attributes(at + before, head.nlmsg_len - before);
        at += length;
        left -= length;
    }
}

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t most, unsigned seed) {
    const size_t changed = LLVMFuzzerMutate(data, size, most);
    if (seed % 2 == 0)
        fuzz_netlink_fit_messages(data, changed);
    return changed;
}
