// What hbsctl goes by on a Linux router.
#pragma once

#include <string>

#include "base/router_paths.h"

struct router_settings {
    bool is_router = false;  // otherwise nothing below counts
    bool by_traffic = false; // whether traffic says who is present
    unsigned settle = 5;     // seconds for which a station may be at no access point
    std::string access_points = HBS_ROUTER_ACCESS_POINTS; // directory of their control sockets; empty = none
    std::string leases;                                   // the DHCP server's file; empty = the usual places
};

// Of this machine, where a daemon of the Linux platform has kept the numbers of its networks.
router_settings settings_of_router();

// The text of a settings file, as the daemon reads it. What makes no sense is passed over, as it is there.
router_settings parse_router_settings(const std::string &text);
