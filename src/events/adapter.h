// How a client is connected, with the port of the switch that it is on.
#pragma once

#include <cstdint>

#include <hbs_db.h>

// adapter_type: HBS_ADAPTER_*. For Ethernet the external switch is asked for the port, also when the type
// stays as it was. Null does nothing. Callers hold hbs_list_mutex.
void hbs_set_adapter_type(hbs_client *client, uint8_t adapter_type);
