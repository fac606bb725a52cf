// Configuration items of the vendor's gateway: there are none here. The router's own addresses are known from
// the forwarding tables.
#include <db.h>

int DB_RetrieveAccess(void) {
    return 0;
}

int DB_GetArray(int, uint8_t *) {
    return -1;
}

uint8_t DB_GetByte(int) {
    return 0;
}
