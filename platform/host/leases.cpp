// Lease notifications as the file of values says: whole without it.
#include <leases.h>

#include "host_values.h"

int LEASES_MayLackTexts(void) {
    host_values_hold hold;
    uint32_t on = 0;
    return common_text_to_u32(host_value("leases.may_lack_texts"), &on) && on == 1 ? 1 : 0;
}
