// The invariants of the store as an abort: what a test would report ends the fuzzer.
#pragma once

#include <gtest/gtest.h>

#include "support/store_invariants.h"

inline void fuzz_stop_at_damage() {
    testing::InitGoogleTest();
    GTEST_FLAG_SET(break_on_failure, true);
}
