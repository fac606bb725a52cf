// Maps of instance numbers.
#include <gtest/gtest.h>

#include "store/instance_map.h"

namespace instance_map_test {

hbs_instance_map full_map() {
    return {{0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu, 0xFFFFFFFFu}};
}

TEST(InstanceMap, EmptyMapGivesOne) {
    hbs_instance_map map{};
    EXPECT_EQ(1u, hbs_instance_free(&map));
}

TEST(InstanceMap, GivesTheLowestClearBitInEveryWord) {
    for (uint32_t instance : {1u, 2u, 32u, 33u, 64u, 65u, 96u, 97u, 128u}) {
        hbs_instance_map map = full_map();
        hbs_instance_release(&map, instance);
        EXPECT_EQ(instance, hbs_instance_free(&map));
    }
}

TEST(InstanceMap, WhenFull_Gives127) {
    hbs_instance_map map{};
    for (uint32_t i = 1; i <= 128; i++) {
        EXPECT_EQ(i, hbs_instance_free(&map));
        hbs_instance_use(&map, i);
    }
    EXPECT_EQ(127u, hbs_instance_free(&map));
}

TEST(InstanceMap, BitOfAnInstanceIsItsNumberLessOne) {
    hbs_instance_map map{};
    hbs_instance_use(&map, 1);
    hbs_instance_use(&map, 34);
    hbs_instance_use(&map, 128);
    EXPECT_EQ(0x00000001u, map.word[0]);
    EXPECT_EQ(0x00000002u, map.word[1]);
    EXPECT_EQ(0u, map.word[2]);
    EXPECT_EQ(0x80000000u, map.word[3]);
}

TEST(InstanceMap, NumbersOutsideDoNothing) {
    hbs_instance_map map{};
    for (uint32_t wrong : {0u, 129u, 0xFFFFFFFFu})
        hbs_instance_use(&map, wrong);
    EXPECT_EQ(0u, map.word[0] | map.word[1] | map.word[2] | map.word[3]);
    map = full_map();
    for (uint32_t wrong : {0u, 129u, 0xFFFFFFFFu})
        hbs_instance_release(&map, wrong);
    EXPECT_EQ(0xFFFFFFFFu, map.word[0] & map.word[1] & map.word[2] & map.word[3]);
}

} // namespace instance_map_test
