// dnsmasq tells its leases again after a restart and after SIGHUP, without what the client said of itself.
#include <leases.h>

int LEASES_MayLackTexts(void) {
    return 1;
}

int LEASES_AreToldAgain(void) {
    return 1;
}
