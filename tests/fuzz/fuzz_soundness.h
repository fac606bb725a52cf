// The invariants of the store as an abort: what a test would report ends the fuzzer.
#pragma once

#include <glob.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "base/paths.h"
#include "fuzz_daemon.h"
#include "support/store_invariants.h"

inline void fuzz_stop_at_damage() {
    testing::InitGoogleTest();
    GTEST_FLAG_SET(break_on_failure, true);
}

inline void fuzz_expect_sound() {
    const hbs_list_hold hold;
    expect_store_sound();
}

inline void fuzz_unlink_all(const char *pattern) {
    glob_t found{};
    if (glob(pattern, GLOB_NOSORT, nullptr, &found) == 0)
        for (size_t i = 0; i < found.gl_pathc; i++)
            (void)unlink(found.gl_pathv[i]);
    globfree(&found);
}

// A gateway in routed mode that remembers nothing: what one input left would be found by the next one, which
// could not be run again by itself.
inline void fuzz_begin_with_nothing() {
    for (const char *path : {HBS_CLIENT_FILE, HBS_WHITE_RULES, HBS_BLACK_RULES, HBS_TRUSTED_INSTANCES})
        (void)unlink(path);
    fuzz_unlink_all(HBS_STATIC_LEASES_BEFORE "*" HBS_STATIC_LEASES_AFTER);
    fuzz_unlink_all(HBS_STATIC_LEASES_BEFORE "*" HBS_HOST_RECORDS_AFTER);
    const hbs_list_hold hold;
    fuzz_forget_clients();
    (void)hbs_set_route_mode(1);
}
