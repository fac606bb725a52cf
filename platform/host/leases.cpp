// Lease notifications as the file of values says: whole and told once without it.
#include <leases.h>

#include "host_values.h"

namespace {

int is_on(const char *key) {
    host_values_hold hold;
    uint32_t on = 0;
    return common_text_to_u32(host_value(key), &on) && on == 1 ? 1 : 0;
}

} // namespace

int LEASES_MayLackTexts(void) {
    return is_on("leases.may_lack_texts");
}

int LEASES_AreToldAgain(void) {
    return is_on("leases.told_again");
}
