// What the opaque board mode of the non-volatile memory means for DHCPv4 leases.
#pragma once

// Whether the board mode is 7, 8 or 9: static leases then get dates and a lease timer too, and the
// client of an expired lease is kept, not deleted.
bool hbs_board_times_static_leases();
