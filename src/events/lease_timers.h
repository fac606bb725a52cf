// What happens when a client's timer expires; see hbs_timer_action. Callers hold hbs_list_mutex.
#pragma once

#include <hbs_db.h>

void hbs_on_dhcp_wait_expired(hbs_client *client);
void hbs_on_lease_expired(hbs_client *client);
void hbs_on_online_expired(hbs_client *client);
