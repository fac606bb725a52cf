// Maps of the instance numbers in use.
#include "store/instance_map.h"

#include <bit>

namespace {

constexpr uint32_t WORD_BITS = 32;

bool is_instance(uint32_t instance) {
    return instance >= 1 && instance <= HBS_INSTANCES;
}

} // namespace

uint32_t hbs_instance_free(const hbs_instance_map *map) {
    for (uint32_t i = 0; i < HBS_INSTANCES / WORD_BITS; i++) {
        auto used = static_cast<uint32_t>(std::countr_one(map->word[i]));
        if (used < WORD_BITS)
            return i * WORD_BITS + used + 1;
    }
    return HBS_INSTANCE_WHEN_FULL;
}

void hbs_instance_use(hbs_instance_map *map, uint32_t instance) {
    if (is_instance(instance))
        map->word[(instance - 1) / WORD_BITS] |= uint32_t{1} << (instance - 1) % WORD_BITS;
}

void hbs_instance_release(hbs_instance_map *map, uint32_t instance) {
    if (is_instance(instance))
        map->word[(instance - 1) / WORD_BITS] &= ~(uint32_t{1} << (instance - 1) % WORD_BITS);
}
