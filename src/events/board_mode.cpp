// Board modes that treat leases in their own way.
#include "events/board_mode.h"

#include <nvm.h>

bool hbs_board_times_static_leases() {
    const int mode = NVM_GetByte(NVM_BYTE_BOARD_MODE);
    return mode == 7 || mode == 8 || mode == 9;
}
