// DHCPv6 lease look-up in the DHCPv6 server's address database.
#pragma once

#include <hbs_db.h>

// Sets lease_v6_end and DYNIP6 from each element that holds the client's global address; the last wins.
void hbs_leasev6_find(hbs_client *client);
