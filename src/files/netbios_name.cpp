// The host name of a device, asked for by NetBIOS.
#include "files/netbios_name.h"

#include <cstdio>
#include <cstring>

#include "base/line_read.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/program.h"
#include "base/scope.h"
#include "base/scratch_file.h"
#include "base/text.h"
#include "store/client_fields.h"

namespace {

// Name in an answer line of the device: address, name, MAC. Some programs put more words before the MAC,
// which then is the last. Null when the line is another's, or the device told no name.
const char *netbios_name(char *line, const uint8_t mac[6]) {
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
    uint8_t told[6];
    if (hbs_text_to_mac(third, told) != 6 && hbs_text_to_mac(last, told) != 6)
        return nullptr;
    const bool is_device = memcmp(told, mac, sizeof told) == 0;
    return is_device && count >= 3 && strcmp(name, "<unknown>") != 0 ? name : nullptr;
}

} // namespace

bool hbs_netbios_ask(const uint8_t mac[6], const uint8_t ipv4[4], char *name, size_t size) {
    const hbs_addr_text address = hbs_ipv4_to_text(ipv4);
    const char *const command[] = {"nbtscan", "-q", address.text, nullptr};
    // Not opened by its name again: while the program runs, somebody may put something else there.
    FILE *answers = hbs_scratch_make(HBS_NETBIOS_ANSWERS);
    if (answers == nullptr)
        return false;
    hbs_at_exit close_answers([&] { (void)fclose(answers); });
    (void)hbs_program_run(command, fileno(answers)); // what it found out is in the file
    rewind(answers);
    char line[HBS_NETBIOS_LINE_SIZE];
    while (hbs_line_read(answers, line, sizeof line)) {
        const char *told = netbios_name(line, mac);
        if (told == nullptr)
            continue;
        hbs_copy_text(name, size, told);
        return true;
    }
    return false;
}

void hbs_netbios_take(hbs_client *client, const char *name) {
    HBS_LOG(HBS_INFO, "HOSTBASE:  Found HOSTNAME for %s through NBTSCAN as %s",
            hbs_mac_to_text(client->mac).text, name);
    hbs_set_host(client, name);
}
