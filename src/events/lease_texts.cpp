#include "events/lease_texts.h"

#include <leases.h>

#include "store/client_fields.h"

namespace {

const char *told_or_known(const char *told, const char *known, bool may_lack) {
    return told[0] == '\0' && may_lack ? known : told;
}

} // namespace

void hbs_take_lease_host(hbs_client *client, const char *host) {
    hbs_set_host(client, told_or_known(host, client->host, host[0] == '\0' && LEASES_MayLackTexts() != 0));
}

void hbs_take_lease_identity(hbs_client *client, const char *oui, const char *serial_number,
                             const char *product_class) {
    const bool some_lack = oui[0] == '\0' || serial_number[0] == '\0' || product_class[0] == '\0';
    const bool may_lack = some_lack && LEASES_MayLackTexts() != 0;
    hbs_set_oui(client, told_or_known(oui, client->oui, may_lack));
    hbs_set_serial_number(client, told_or_known(serial_number, client->serial_number, may_lack));
    hbs_set_product_class(client, told_or_known(product_class, client->product_class, may_lack));
}
