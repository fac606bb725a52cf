// Which LAN an access point's network belongs to.
#include <lsddb.h>

int LSDDB_Read(int, int) {
    return 0;
}

int LSDDB_GetDevParams(const lsddb_key *, lsddb_params *) {
    return -1;
}
