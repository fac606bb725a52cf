// Compares the published clients with what the kernel and the DHCP servers know.
#pragma once

#include <string>
#include <vector>

#include <hbs_db.h>

// Somebody else's knowledge of a device.
struct sighting {
    enum kind { neighbour, dynamic_lease, static_lease, ipv6_lease };
    kind what;
    std::string mac;     // lower case; empty when the source does not tell it
    std::string address; // in the usual text form
    std::string place;   // interface or file
};

// What the DHCP servers hold, and whether what is not there is no lease: no server's file may be there to be
// read.
struct lease_knowledge {
    std::vector<sighting> leases;
    bool ipv4 = true, ipv6 = true;
};

// One thing that one side knows and the other does not.
struct difference {
    std::string known_to; // "kernel", "leases" or "clients"
    std::string mac;      // empty when not known
    std::string address;
    std::string text; // a whole sentence without its full stop
};

std::vector<difference> compare(const std::vector<hbs_client> &clients, std::vector<sighting> sightings,
                                const lease_knowledge &leases = {});
