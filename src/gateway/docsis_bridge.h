// The DOCSIS bridge's table of learned CPE addresses.
#pragma once

#include <cstdint>

// Removes one MAC (6 bytes) from the bridge unless it is one of the gateway's own.
void hbs_remove_cpe_from_docsis_bridge(const uint8_t mac[6]);

// Removes every learned CPE that the external switch places on the port (1-4).
void hbs_remove_cpe_by_port(uint32_t port);
