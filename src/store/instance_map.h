// Maps of the instance numbers in use, one for each network's interface entries and one for the primary
// entries.
#pragma once

#include <cstdint>

constexpr uint32_t HBS_INSTANCES = 128;
constexpr uint32_t HBS_INSTANCE_WHEN_FULL = 127; // what a full map gives, whoever holds it

// 128 bits, lowest word first; bit n - 1 stands for instance n.
struct hbs_instance_map {
    uint32_t word[4];
};

// The lowest instance that is not in use, from 1; HBS_INSTANCE_WHEN_FULL when all are.
uint32_t hbs_instance_free(const hbs_instance_map *map);

// Note an instance as in use, and as free. Numbers outside 1-128 do nothing.
void hbs_instance_use(hbs_instance_map *map, uint32_t instance);
void hbs_instance_release(hbs_instance_map *map, uint32_t instance);
