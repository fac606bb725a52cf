// Bridge mode and routed mode. Callers hold hbs_list_mutex.
#pragma once

#include <cstdint>

// mode 0 bridge: the database is emptied and events are ignored; else routed. Returns 0.
int hbs_set_route_mode(uint8_t mode);
