// The DOCSIS bridge of a test: what it has learned, and what was taken out of it.
#pragma once

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/gateway.h"

inline const std::string BRIDGE_CPES = "/proc/net/dbrctl/cpe";
inline const std::string BRIDGE_DELETE = "/proc/net/dbrctl/deletecpe";

// The form in which the bridge is told an address.
inline std::string bridge_form(std::string mac) {
    for (char &character : mac)
        if (character == ':')
            character = '-';
    return mac;
}

// What was written to the delete file, one address a line. The box notes it a moment after it was written.
inline std::vector<std::string> bridge_deletions() {
    return read_lines("/var/lib/hbs-host/deletecpe");
}

// Expects exactly these addresses, in this order: the box keeps the order, so once the last one is there, no
// other can come before it.
inline void expect_deletions(const std::vector<std::string> &macs) {
    std::vector<std::string> expected;
    for (const std::string &mac : macs)
        expected.push_back(bridge_form(mac));
    EXPECT_TRUE(wait_until([&] { return bridge_deletions().size() >= expected.size(); }));
    EXPECT_EQ(expected, bridge_deletions());
}
