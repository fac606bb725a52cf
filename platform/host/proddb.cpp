// Production data, from the file of values.
#include <proddb.h>

#include "host_values.h"

int ProductionDb_RetrieveAccess(void) {
    int result = 0;
    return host_call_fails("ProductionDb_RetrieveAccess", &result) ? result : 0;
}

int ProdDb_GetCmMacAddress(uint8_t mac[6]) {
    host_values_hold hold;
    int result = 0;
    if (host_told_to_fail("ProdDb_GetCmMacAddress", &result))
        return result;
    return mac != nullptr && common_text_to_mac(host_value("production.cm_mac"), mac) ? 0 : -1;
}
