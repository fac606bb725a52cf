// Non-volatile memory of the board: there is none here.
#include <nvm.h>

int NVM_RetrieveAccess(void) {
    return 0;
}

uint8_t NVM_GetByte(int) {
    return 0;
}
