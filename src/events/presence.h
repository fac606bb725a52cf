// Presence by traffic, where the platform says so: a device that answers or sends is on line, one that does
// neither is not. On a gateway these do nothing. Callers hold hbs_list_mutex, except where it says so.
#pragma once

#include <cstdint>

#include <hbs_db.h>

constexpr uint32_t HBS_ONLINE_SECONDS = 600; // a stale wired client counts as on line for this long

// Its neighbour entry has become reachable. Returns whether that alone makes it on line.
bool hbs_presence_reached(hbs_client *client);

// It is on line by a lease or by what was heard of it, and no neighbour entry need follow. Where traffic
// tells, its silence is timed from now on, or nobody would ever ask for it again; elsewhere the timer stops.
void hbs_presence_time(hbs_client *client);

// A question for its address had no answer: it is off line when no other address of it answers, each asked
// for once, and it sends nothing either. One of which something was heard just now is looked at again when it
// would have been silent for long enough. A Wi-Fi station that is associated sleeps, and stays.
void hbs_presence_unanswered(hbs_client *client, int family, const uint8_t *address);

// Its time on line is over. Returns whether it stays: where traffic tells, a silent one is asked for its
// addresses, and only an answer that does not come ends it.
bool hbs_presence_stays(hbs_client *client);

// Whether a lease makes its client on line: a server tells leases again, also those of devices that have
// left. One that has not been heard of late is asked for the address, and is on line by its answer.
bool hbs_presence_leased(const hbs_client *client, int family, const uint8_t *address);

// It is known by now where a device is, after nobody could tell for a while: its record gets that place. A
// lease has counted as a sign of life meanwhile, so one that is silent is asked for its addresses. Takes
// hbs_list_mutex itself.
void hbs_presence_placed(const uint8_t mac[6]);

// A bridge has just learned where the device is, on the port `ifindex`: that is its place now, and it is on
// line when an address of it is known. Takes hbs_list_mutex itself.
void hbs_presence_heard(const uint8_t mac[6], int ifindex);
