// What happens when a client's timer expires. Each runs on a timer thread of its own, takes
// hbs_list_mutex, and finds the client by the number in the value; a client that is gone is harmless.
#pragma once

#include <csignal>

void hbs_on_dhcp_wait_expired(union sigval client_id);
void hbs_on_lease_expired(union sigval client_id);
void hbs_on_online_expired(union sigval client_id);
