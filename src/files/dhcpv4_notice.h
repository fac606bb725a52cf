// The DHCPv4 server's notification file: a line for each lease that was granted or released.
#pragma once

#include "files/lease.h"

enum class hbs_notice_action { add, del };

// What the line leaves out (network, adapter) is to be worked out. lease_file is of an ADD only: "unknown
// file" for none.
struct hbs_dhcpv4_notice : hbs_dhcpv4_lease {
    hbs_notice_action action;
};

// Reads one line (without its line end), which is cut up in place. Texts are empty where the line says "null"
// or nothing. Returns false, with `notice` undefined, when the line breaks any rule.
bool hbs_dhcpv4_notice_parse(char *line, hbs_dhcpv4_notice *notice);

// Takes the file at `path` away and hands what each line says to the handler, in order; each line is logged,
// and so is one that is invalid. An empty file is nothing to do; null returns. False when the file could not
// be taken (logged) and has to be looked at again after a while. The file watch thread alone calls it.
using hbs_dhcpv4_notice_handler = void (*)(const hbs_dhcpv4_notice *notice);
bool hbs_dhcpv4_notices_read(const char *path, hbs_dhcpv4_notice_handler handler);
