#include "base/log.h"

std::atomic<uint32_t> hbs_log_highest = UINT32_MAX;

namespace {

void take_level(uint32_t highest) {
    hbs_log_highest.store(highest, std::memory_order_relaxed);
}

} // namespace

void hbs_log_init() {
    logger_register_level_cb(take_level);
}
