// Flap list: counts joins that follow each other within a configured interval.
#pragma once

#include <hbs_db.h>

// Whether the gateway setting is available and 1. Callers ask before either check.
bool hbs_flap_list_enabled();

void hbs_flap_check_lease(hbs_client *client); // lease/association set
void hbs_flap_check_reach(hbs_client *client); // reachability set
