// The ways in which a client ends, and what each of them touches. Callers hold hbs_list_mutex.
//
//                                slot,        timers   list, pool,   client    lease-file  per-client
//                                entries               notes         counter   lines       files
//   hbs_client_release           -            -        gone          -         -           -
//   hbs_client_free              nobody's     stopped  gone          -         -           -
//   hbs_shm_remove (unpublish)   gone         -        slot's owner  -         -           -
//   hbs_client_merge_away        gone         stopped  gone          -         -           -
//     ... and its survivor       made anew    -        -             -         -           -
//   hbs_delete_client            kept         stopped  gone *        lowered*  in remains  in remains
//   hbs_shm_reclaim              gone         as hbs_delete_client, of the slot's client
//   hbs_client_make_room         gone         stopped  gone          lowered   gone        gone
//   hbs_client_end_nobody        gone         stopped  gone          -         -           - **
//   hbs_remove_client (files)    all rebuilt  stopped  gone          -         gone        gone
//
//   *  A client without a MAC keeps its working copy, and with it the counter, and gets a fresh slot at its
//      next publication, unless it has no address either: nobody could ever find that one again.
//   ** The lease that is about to come may name the same file.
//
// hbs_client_release (store/clients) is the last step of each that ends a working copy; hbs_remove_client
// (files/client_removal) needs the rules, which stand above this floor.
//
// No file is touched while the semaphore is held. What a client leaves in files is copied out under the hold
// (hbs_client_remains) and dropped after it, by a floor that knows files.
#pragma once

#include <cstdint>

#include <hbs_db.h>

#include "store/slots.h"

// What an ended client has left in files.
struct hbs_client_remains {
    bool exist; // false: nobody ended
    uint8_t mac[6];
    char lease_file[HBS_LEASE_FILE_SIZE]; // names under /var/tmp; empty = none
    char lease_file6[HBS_LEASE_FILE_SIZE];
};

// Who drops remains. Registered once at start-up, because it stands above this floor.
using hbs_remains_action = void (*)(const hbs_client_remains *remains);
void hbs_client_end_register(hbs_remains_action drop);

// Has remains dropped, if there are any. Not to be called under the semaphore.
void hbs_client_drop_remains(const hbs_client_remains *remains);

hbs_client_remains hbs_client_remains_of(const hbs_client *client);

// Frees a working copy: timers, list link, pool, and the note of its slot. The segment is not touched:
// a client that is still published is taken out of it before or the whole segment is flushed.
void hbs_client_free(hbs_client *client);

// Takes a client out of the segment; the working copy keeps its (now stale) dbpos. Locks.
void hbs_shm_remove(hbs_client *client);

// Ends a nomac client that was merged into another: both leave the segment, the survivor returns with its
// entries in the same hold if one of them had a slot. Locks.
void hbs_client_merge_away(hbs_client *client, hbs_client *survivor);

// Ends the working copy that a slot of the client list belongs to, if it is on the client list, and lowers
// the client counter. Returns the remains of what was published, also when there is no such working copy.
hbs_client_remains hbs_delete_client(const hbs_slot *slot);

// Takes the slot of the client that has been off line longest. Clients that are on line, have a static lease
// or bear trust bits are not taken, judged by what was last published, nor are those that a command has given
// a static lease. When there is no other, a record without a MAC and an address goes, whatever its flags.
// Returns the slot, zeroed and on no list, or null. Called with the semaphore held; never waits on it.
const hbs_slot *hbs_shm_reclaim(hbs_client_remains *remains);

// Whether a client without a slot would get one.
bool hbs_slot_available();

// Ends a client so that its working copy can be used again: the oldest of those that are unpublished, off
// line and unprotected, else a published one by the rule of hbs_shm_reclaim, else one with neither MAC nor
// address. Returns whether there was one. Locks.
bool hbs_client_make_room();

// Ends one client with neither MAC nor address, if there is one. Called before a client without a MAC is
// added, so that a device that gets and gives back its address over and over leaves one record, not many.
// Locks.
void hbs_client_end_nobody();
