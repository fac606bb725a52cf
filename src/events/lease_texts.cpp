#include "events/lease_texts.h"

#include <leases.h>

#include "store/client_fields.h"

namespace {

const char *told_or_known(const char *told, const char *known) {
    return told[0] == '\0' && LEASES_MayLackTexts() != 0 ? known : told;
}

} // namespace

void hbs_take_lease_host(hbs_client *client, const char *host) {
    hbs_set_host(client, told_or_known(host, client->host));
}

void hbs_take_lease_identity(hbs_client *client, const char *oui, const char *serial_number,
                             const char *product_class) {
    hbs_set_oui(client, told_or_known(oui, client->oui));
    hbs_set_serial_number(client, told_or_known(serial_number, client->serial_number));
    hbs_set_product_class(client, told_or_known(product_class, client->product_class));
}
