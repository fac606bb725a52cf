#include "events/maintenance.h"

#include "files/user_settings.h"
#include "gateway/subnet_change.h"
#include "store/dump.h"

int hbs_handle_reset_defaults() {
    return hbs_nv_reset();
}

void hbs_handle_dump() {
    hbs_db_dump();
}

int hbs_handle_subnet_change(uint32_t rndidx, uint32_t old_address, uint32_t new_address,
                             uint32_t prefix_length) {
    return hbs_lease_subnet4_changed(rndidx, old_address, new_address, prefix_length);
}
