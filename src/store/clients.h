// The daemon's working copies: their pool, the two process-local lists, look-ups, flags. They are born by
// hbs_add (client_add) and end in the ways of client_end.
// Callers hold hbs_list_mutex. Working copies come from a fixed pool of HBS_MAX_WORKING, so that a
// flood of invented MAC addresses costs other strangers their place, not the gateway its memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include <hbs_db.h>

constexpr int HBS_MAX_WORKING = 512;

// Empties both lists and frees every working copy (start-up).
void hbs_clients_init();

// What hbs_add does while the pool is not empty; null when it is.
hbs_client *hbs_client_take(const uint8_t *mac);

// Look-ups; null when there is none, and for a null argument.
hbs_client *hbs_find_by_mac(const uint8_t *mac);
hbs_client *hbs_find_by_ipv4(const uint8_t *ipv4);
hbs_client *hbs_find_by_ipv6(const uint8_t *ipv6); // matches ipv6 or ll; :: (no address) matches none
hbs_client *hbs_find_nomac_by_ipv6(const uint8_t *ipv6);

// Walks the client list and the nomac list in order (null at the end). Take the next client after the
// current one was published, not before: publishing may delete another client.
hbs_client *hbs_client_first();
hbs_client *hbs_client_next(const hbs_client *client);
hbs_client *hbs_nomac_first();
hbs_client *hbs_nomac_next(const hbs_client *client);

bool hbs_is_working_copy(const hbs_client *client); // in use and one of this pool
bool hbs_is_nomac(const hbs_client *client);        // on the nomac list

// Moves a nomac client to the tail of the client list (its MAC is set by the caller).
void hbs_client_list_move(hbs_client *client);

// Unlinks a working copy and returns it to the pool. Its timers must be gone: see hbs_client_free.
void hbs_client_release(hbs_client *client);

// Whether a command gave the client a static lease: it is not displaced, whatever its flags say. Known to
// this process only. False for what is no working copy.
void hbs_set_commanded_lease(hbs_client *client, bool has);
bool hbs_has_commanded_lease(const hbs_client *client);

// When it was last asked for all its addresses (CLOCK_MONOTONIC seconds, 0 = not since it answered). Known to
// this process only; what is no working copy was never asked.
void hbs_set_asked_at(hbs_client *client, uint32_t seconds);
uint32_t hbs_asked_at(const hbs_client *client);

// A new client's id is the counter, raised by one (past 0). The end of a client that loses its place
// lowers it (client_end.h), so that an id that is in use can be given again: kept, timers are told apart by
// their arming as well.
void hbs_client_counter_decrement();
uint32_t hbs_client_counter(); // for whoever looks for a fault

// OR bits in / clear bits: the only way to change a flags word. A change mark is set unless the old
// trust equals t and the old flags equal s (change marks aside): the old words are compared with the
// requested bits, not with the result, and that is kept. online_time follows ONLINE.
void hbs_set_flags(hbs_client *client, uint32_t t, uint32_t s);
void hbs_clear_flags(hbs_client *client, uint32_t t, uint32_t s);

bool hbs_client_has_ipv6(const hbs_client *client);
bool hbs_client_has_ll(const hbs_client *client);

// POSIX timer of a working copy by kind (1-3), beside the record; see client_timers.
struct hbs_timer_slot {
    timer_t handle;
    bool exists;
    int arming;       // number of its arming while it exists, which its expiry carries; 0 = none
    int64_t deadline; // CLOCK_MONOTONIC seconds; 0 = none
};
hbs_timer_slot *hbs_client_timer_slot(hbs_client *client, int kind);
