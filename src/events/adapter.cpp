#include "events/adapter.h"

#include "gateway/switch_ports.h"
#include "store/client_fields.h"

void hbs_set_adapter_type(hbs_client *client, uint8_t adapter_type) {
    if (client == nullptr)
        return;
    // The store keeps a port for Ethernet only: for the others the switch need not be asked.
    const bool switched = adapter_type == HBS_ADAPTER_ETHERNET;
    const uint8_t port = switched ? static_cast<uint8_t>(hbs_ext_switch_port_of(client->mac)) : uint8_t{0};
    hbs_set_adapter(client, adapter_type, port);
}
