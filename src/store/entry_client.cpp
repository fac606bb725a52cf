// Which client an index entry is for.
#include "store/entry_client.h"

#include "store/pools.h"

bool hbs_reference_is_published(uint32_t dbpos) {
    return hbs_list_holds(hbs_pool::clients, hbs_pool_element(hbs_pool::clients, dbpos));
}

uint32_t hbs_reference_of(const hbs_client *client) {
    return hbs_pool_offset(hbs_slot_of(client));
}
