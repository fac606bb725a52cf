// The text file of values: `key = value` lines, read again whenever the file has changed.
#pragma once

#include <cstddef>

#include "common_text.h"

struct host_entry {
    const char *key;
    const char *value; // blanks at both ends removed
};

// While one of these lives its thread has the values to itself and they do not change: every call that
// looks values up makes one first, and makes no upcall while it lives. The newest file is read then.
struct host_values_hold {
    host_values_hold();
    ~host_values_hold();
    host_values_hold(const host_values_hold &) = delete;
    host_values_hold &operator=(const host_values_hold &) = delete;
};

// Has a function called whenever the file was read anew, without a hold, before the call that read it goes
// on.
void host_values_on_change(void (*function)());

// Another number after each time that the file was read anew. Needs a hold.
uint32_t host_values_edition();

// Value of the last line with a key, or null when there is none. The text lives as long as the hold. A file's
// keys count in lower case: the first form takes the key in lower case too, the others make it so.
const char *host_value(const char *key);
const char *host_value_with(const char *key_format, ...) __attribute__((format(printf, 1, 2)));
const char *host_value_of_mac(const char *prefix, const uint8_t mac[6]); // key: prefix "aa:bb:cc:dd:ee:ff"

// Line number `index` (from 0, lines without a value not counted) in the file's order; null behind the last.
const host_entry *host_entry_at(size_t index);

// The part of an entry's key behind a prefix (lower case), or null when the key does not begin with it.
const char *host_key_after(const host_entry *entry, const char *prefix);

// Whether the file tells this call to fail, with the result to return. A text that is no number counts as -1.
bool host_told_to_fail(const char *call, int *result);

// The same for calls that look nothing else up: takes a hold for as long as it runs, unless the thread knows
// already.
bool host_call_fails(const char *call, int *result);
