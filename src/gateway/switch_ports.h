// Switch look-ups: on which port, and so through which adapter, a MAC address was learned.
#pragma once

#include <cstdint>

// External-switch port of a MAC (6 bytes), 0 when not found.
uint32_t hbs_ext_switch_port_of(const uint8_t *mac);

// 1 when the MAC is learned on external-switch port 1 to EXTSWT_PORTS, else 0; 1 for a null MAC. Logged.
int decide_if_by_ExtSwPort(const uint8_t *mac);

// HBS_ADAPTER_* from the L2 switch table, 0 when unknown; Ethernet for a null MAC.
uint8_t hbs_adapter_from_l2switch(const uint8_t *mac);

// The adapter decision: Ethernet when the external switch has the MAC, else what the L2 switch says.
uint8_t hbs_adapter_of(const uint8_t *mac);
