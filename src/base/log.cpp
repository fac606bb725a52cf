#include "base/log.h"

uint32_t hbs_log_highest = UINT32_MAX;

namespace {

void take_level(uint32_t highest) {
    __atomic_store_n(&hbs_log_highest, highest, __ATOMIC_RELAXED);
}

} // namespace

void hbs_log_init() {
    logger_register_level_cb(take_level);
}
