// The DOCSIS bridge's files under /proc.
#include "gateway/docsis_bridge.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <db.h>
#include <extswt.h>
#include <proddb.h>

#include "base/log.h"
#include "base/paths.h"
#include "base/scope.h"
#include "base/text.h"

namespace {

constexpr int CPE_LINE_SIZE = 128;

// A place for a MAC of the gateway's. Until one is written into it, it differs from `mac` in every bit.
struct own_mac {
    uint8_t bytes[6];
};

own_mac other_than(const uint8_t mac[6]) {
    own_mac own{};
    std::transform(mac, mac + sizeof own.bytes, own.bytes,
                   [](uint8_t byte) { return static_cast<uint8_t>(~byte); });
    return own;
}

bool is_same(const own_mac &own, const uint8_t mac[6]) {
    return memcmp(own.bytes, mac, sizeof own.bytes) == 0;
}

bool is_db_mac(int item, const uint8_t mac[6]) {
    own_mac own = other_than(mac);
    (void)DB_GetArray(item, own.bytes);
    return is_same(own, mac);
}

// Skipped when the production data cannot be opened.
bool is_cm_mac(const uint8_t mac[6]) {
    if (ProductionDb_RetrieveAccess() != 0)
        return false;
    own_mac own = other_than(mac);
    (void)ProdDb_GetCmMacAddress(own.bytes);
    return is_same(own, mac);
}

// Whether the MAC is the gateway's own; the refusals are worded and ended as tools that read the log expect.
bool is_protected(const uint8_t mac[6], const char *mac_text) {
    if (is_db_mac(DB_ITEM_EROUTER_MAC, mac))
        HBS_LOG(HBS_ERROR, "HOSTBASE: Erouter mac address can't allow to be removed from docsis bridge %s\n",
                mac_text);
    else if (is_db_mac(DB_ITEM_MTA_MAC, mac))
        HBS_LOG(HBS_ERROR, "HOSTBASE: Mta mac address can't allow to be removed from docsis bridge %s\n",
                mac_text);
    else if (is_cm_mac(mac))
        HBS_LOG(HBS_ERROR, "HOSTBASE: CM mac address can't allow to be removed from docsis bridge %s\n",
                mac_text);
    else
        return false;
    HBS_LOG(HBS_ERROR, "HOSTBASE: Faile to remove %s from docsis bridge\n", mac_text);
    return true;
}

// Two digits a byte at most. What is missing of a word that is no MAC is 0: it is looked up all the same.
void cpe_of(const char *word, uint8_t mac[6]) {
    (void)(sscanf(word, "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4],
                  &mac[5]) == 6);
}

// One line of the CPE table: "->" first, a LAN interface somewhere, the MAC as second word.
void remove_if_on_port(const char *line, uint32_t port) {
    if (strncmp(line, "->", 2) != 0 || strstr(line, "l2sd0") == nullptr)
        return;
    char word[CPE_LINE_SIZE];
    if (sscanf(line, "%*s%127s", word) != 1)
        return;
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_remove_cpe_by_port: Search CPE %s\n", word);
    uint8_t mac[6] = {};
    cpe_of(word, mac);
    uint16_t hit = 0;
    uint32_t found_port = 0;
    (void)extSwitchSearchMac(mac, &hit, &found_port);
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_remove_cpe_by_port: extport=%d hit:%d", static_cast<int>(found_port),
            hit);
    if (hit != 0 && found_port == port)
        hbs_remove_cpe_from_docsis_bridge(mac);
}

} // namespace

void hbs_remove_cpe_from_docsis_bridge(const uint8_t mac[6]) {
    if (HBS_DOCSIS_BRIDGE == 0)
        return;
    const hbs_mac_text mac_text = hbs_mac_to_text(mac);
    if (is_protected(mac, mac_text.text))
        return;
    FILE *file = fopen(HBS_BRIDGE_DELETE_CPE, "we");
    if (file == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: Failed to open file %s\n", mac_text.text);
        return;
    }
    HBS_LOG(HBS_INFO, "HOSTBASE: removing %s from docsis bridge\n", mac_text.text);
    (void)fprintf(file, "%.2x-%.2x-%.2x-%.2x-%.2x-%.2x ", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    (void)fclose(file);
}

void hbs_remove_cpe_by_port(uint32_t port) {
    if (HBS_DOCSIS_BRIDGE == 0)
        return;
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_remove_cpe_by_port: port=%d", static_cast<int>(port));
    FILE *file = fopen(HBS_BRIDGE_CPE, "re");
    if (file == nullptr) {
        HBS_LOG(HBS_ERROR, "HOSTBASE: hbs_remove_cpe_by_port: open bridge cpe proc file failed !");
        return;
    }
    hbs_at_exit close([file] { (void)fclose(file); });
    char line[CPE_LINE_SIZE];
    while (fgets(line, sizeof line, file) != nullptr)
        remove_if_on_port(line, port);
}
