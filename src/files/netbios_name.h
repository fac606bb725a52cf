// The host name of a client, asked for by NetBIOS when no lease names it.
#pragma once

#include <hbs_db.h>

// Asks for the host name of a client that has an IPv4 address; without an answer its name stays. Waits for
// the program "nbtscan", which takes a second also when nobody answers. Callers hold hbs_list_mutex.
void hbs_nbtscan_hostname(hbs_client *client);
