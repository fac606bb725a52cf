// The host name of a device, asked for by NetBIOS when no lease names it.
#pragma once

#include <cstddef>
#include <cstdint>

#include <hbs_db.h>

// Longest answer line; a name is shorter.
constexpr size_t HBS_NETBIOS_LINE_SIZE = 1024;

// Asks the device with this address and MAC for its name. Waits for the program "nbtscan", which takes a
// second also when nobody answers: callers hold no lock, and one asks at a time (the answers go through one
// file). Returns whether it told a name.
bool hbs_netbios_ask(const uint8_t mac[6], const uint8_t ipv4[4], char *name, size_t size);

// A client was told a name. Callers hold hbs_list_mutex.
void hbs_netbios_take(hbs_client *client, const char *name);
