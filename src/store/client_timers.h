// The three one-shot timers of a client. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>

#include <hbs_db.h>

enum hbs_timer_kind : int { HBS_TIMER_DHCP_WAIT = 1, HBS_TIMER_LEASE = 2, HBS_TIMER_ONLINE = 3 };

// What runs when a kind expires: on a thread of its own, under hbs_list_mutex, with the client whose own
// timer it was, already rid of that timer; its armed bit is left to the action, which may end the client.
// Registered once at start-up, because the expiry actions stand above this floor.
using hbs_timer_action = void (*)(hbs_client *client);
void hbs_lease_timers_register(hbs_timer_action dhcp_wait, hbs_timer_action lease, hbs_timer_action online);

// Arms the timer of a kind, replacing the one that runs; one-shot, 0 seconds never expire. A failure is
// logged and leaves the armed bit and the deadline set; a kind without a registered action fails too. An
// unknown kind and a client that is no working copy do nothing.
void hbs_lease_timer_start(hbs_client *client, int kind, uint32_t seconds);

// Disarms it. Unknown kinds do nothing.
void hbs_lease_timer_stop(hbs_client *client, int kind);

// Second of CLOCK_MONOTONIC at which the kind ends what it was started for; 0 = never: not started, started
// with 0 seconds, stopped or expired. Also there when no timer could be made for it.
int64_t hbs_lease_timer_deadline(hbs_client *client, int kind);

// Lets a kind expire now: discards its timer and its deadline, and runs its action.
void hbs_lease_timer_expire(hbs_client *client, int kind);

// Disarms all three before a client is freed. A running DHCP-wait timer also wipes the client's trust,
// which is kept.
void hbs_lease_timers_clear(hbs_client *client);
