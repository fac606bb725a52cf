// Non-volatile memory of the board: byte items from the file of values.
#include <nvm.h>

#include "host_values.h"

int NVM_RetrieveAccess(void) {
    int result = 0;
    return host_call_fails("NVM_RetrieveAccess", &result) ? result : 0;
}

uint8_t NVM_GetByte(int id) {
    host_values_hold hold;
    uint8_t value = 0;
    (void)common_text_to_byte(host_value_with("nvm.byte.%d", id), &value);
    return value;
}
