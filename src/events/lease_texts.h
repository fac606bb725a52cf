// The texts of a lease. Callers hold hbs_list_mutex.
#pragma once

#include <hbs_db.h>

// Where the platform says that a lease that is told again may lack texts, an empty one changes nothing.
void hbs_take_lease_host(hbs_client *client, const char *host);
void hbs_take_lease_identity(hbs_client *client, const char *oui, const char *serial_number,
                             const char *product_class);
