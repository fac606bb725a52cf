// Production data: there is none here.
#include <proddb.h>

int ProductionDb_RetrieveAccess(void) {
    return -1;
}

int ProdDb_GetCmMacAddress(uint8_t *) {
    return -1;
}
