// Datagrams as a sender of another program builds them, by offsets, and the daemon's road for one of them.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include <hbs_msg.h>

#include "daemon/dispatcher.h"
#include "support/command_fakes.h"

constexpr const char *TAG = "len 6 : 2f 74 6d 70 2f 61";

using bytes = std::vector<uint8_t>;

constexpr uint8_t MAC[6] = {0x02, 0xaa, 0, 0, 0, 0x11};
constexpr uint8_t NEW_MAC[6] = {0x02, 0xaa, 0, 0, 0, 0x22};
constexpr uint8_t IPV4[4] = {192, 168, 0, 10};
constexpr uint8_t IPV6[16] = {0xfd, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x10};
constexpr uint8_t LL[16] = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x11};

struct Datagram {
    bytes data;

    explicit Datagram(uint8_t code) : data(HBS_MSG_MAX, 0) { data[0] = code; }

    template <size_t size> Datagram &raw(size_t offset, const uint8_t (&value)[size]) {
        memcpy(&data[offset], value, size);
        return *this;
    }
    Datagram &u8(size_t offset, uint8_t value) {
        data[offset] = value;
        return *this;
    }
    Datagram &u16(size_t offset, uint16_t value) {
        memcpy(&data[offset], &value, sizeof(value));
        return *this;
    }
    Datagram &u32(size_t offset, uint32_t value) {
        memcpy(&data[offset], &value, sizeof(value));
        return *this;
    }
    Datagram &text(size_t offset, const std::string &value) {
        memcpy(&data[offset], value.data(), value.size());
        return *this;
    }
    Datagram &fill(size_t offset, size_t size, char value) {
        memset(&data[offset], value, size);
        return *this;
    }
};

// Result that a reply carries before a datagram is dispatched.
constexpr int32_t CARRIED = 77;

struct Outcome {
    trace::list lines; // the reply stands among them as "reply N"
    int32_t result;
};

inline Outcome dispatch(const Datagram &datagram, int32_t carried = CARRIED) {
    auto data = datagram.data;
    hbs_command command{};
    command.buffer = data.data();
    command.sender = TAG;
    command.result = carried;
    if (hbs_dispatch(&command))
        trace::add(std::string("reply ") + command.result);
    hbs_dispatch_after(&command);
    return {trace::take(), command.result};
}

inline Datagram filter(uint8_t code) {
    return Datagram(code)
        .u8(1, 2)
        .raw(2, MAC)
        .u32(8, 0xbeef)
        .u16(12, 2)
        .u16(14, 3)
        .text(16, "remark")
        .raw(272, NEW_MAC)
        .u32(280, 9)
        .u32(284, 4)
        .u32(288, 5)
        .u32(292, 6)
        .text(296, "described")
        .text(552, "keywords")
        .text(808, "domains")
        .u32(1064, 99);
}

inline Datagram dhcpv4(uint8_t code) {
    return Datagram(code)
        .raw(1, MAC)
        .raw(8, IPV4)
        .u32(12, 1)
        .u32(16, 3600)
        .text(20, "laptop")
        .text(148, "l2sd0.2")
        .text(212, "001122")
        .text(219, "serial")
        .text(284, "class")
        .text(349, "lease")
        .u32(608, HBS_UNKNOWN_U32)
        .u32(612, 5);
}

inline Datagram dhcpv6(uint8_t code) {
    return Datagram(code)
        .raw(1, LL)
        .raw(17, IPV6)
        .u32(36, 1800000000)
        .text(40, "laptop.lan")
        .text(168, "001122")
        .text(175, "serial")
        .text(240, "class")
        .text(305, "lease6");
}
