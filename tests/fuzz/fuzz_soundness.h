// The invariants of the store as an abort: what a test would report ends the fuzzer.
#pragma once

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

// A gateway in routed mode that remembers nothing.
inline void fuzz_begin_with_nothing() {
    for (const char *path : {HBS_CLIENT_FILE, HBS_WHITE_RULES, HBS_BLACK_RULES, HBS_TRUSTED_INSTANCES})
        (void)unlink(path);
    const hbs_list_hold hold;
    fuzz_forget_clients();
    (void)hbs_set_route_mode(1);
}
