// Link events of the external switch: a port that loses link takes its clients off line.
#pragma once

#include <cstdint>

// Sets all ports up and registers the link callback (start-up).
void hbs_switch_link_init();

// states: link states from port 1 on, 0 = down. Only a change from up to down acts.
void hbs_ext_switch_link_cb(const uint32_t states[]);

// Forces the clients of a port (from 1) off line.
void hbs_ext_switch_link_down(uint32_t port);
