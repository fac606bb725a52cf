// The host name of a client, asked for by NetBIOS.
#include "files/netbios_name.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

#include "base/line_read.h"
#include "base/log.h"
#include "base/program.h"
#include "base/scope.h"
#include "base/text.h"
#include "store/client_fields.h"

static constexpr const char *NETBIOS_ANSWERS = "/var/tmp/nbtlist";

// Name in an answer line of the client: address, name, MAC. Some programs put more words before the MAC,
// which then is the last. Null when the line is another's, or the device told no name.
static const char *netbios_name(char *line, const hbs_client *client) {
    char *words = line;
    const char *name = nullptr;
    const char *third = "";
    const char *last = "";
    int count = 0;
    for (char *word; (word = strtok_r(words, " \t\r", &words)) != nullptr; last = word) {
        ++count;
        if (count == 2)
            name = word;
        if (count == 3)
            third = word;
    }
    uint8_t mac[6];
    if (hbs_text_to_mac(third, mac) != 6 && hbs_text_to_mac(last, mac) != 6)
        return nullptr;
    const bool is_client = memcmp(mac, client->mac, sizeof mac) == 0;
    return is_client && count >= 3 && strcmp(name, "<unknown>") != 0 ? name : nullptr;
}

void hbs_nbtscan_hostname(hbs_client *client) {
    if (hbs_ipv4_is_zero(client->ipv4))
        return;
    const hbs_addr_text address = hbs_ipv4_to_text(client->ipv4);
    const char *const command[] = {"nbtscan", "-q", address.text, nullptr};
    (void)unlink(NETBIOS_ANSWERS);
    (void)hbs_program_run(command, NETBIOS_ANSWERS); // what it found out is in the file
    FILE *answers = fopen(NETBIOS_ANSWERS, "re");
    if (answers == nullptr)
        return;
    hbs_at_exit close_answers([&] { (void)fclose(answers); });
    char line[1024];
    while (hbs_line_read(answers, line, sizeof line)) {
        const char *name = netbios_name(line, client);
        if (name == nullptr)
            continue;
        HBS_LOG(HBS_INFO, "HOSTBASE:  Found HOSTNAME for %s through NBTSCAN as %s",
                hbs_mac_to_text(client->mac).text, name);
        hbs_set_host(client, name);
        return;
    }
}
