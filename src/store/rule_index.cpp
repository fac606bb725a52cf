// The rule index of the segment. An entry is found by the rule that it carries, and numbered from 1.
#include "store/rule_index.h"

#include <algorithm>
#include <cstring>

#include "base/log.h"
#include "store/client_text.h"
#include "store/pools.h"
#include "store/segment.h"

namespace {

constexpr uint32_t RULE_KEY = 200; // first key word of every rule entry
constexpr int PARAMETERS = 7;

uint32_t rule_count;

} // namespace

uint32_t hbs_rule_count() {
    return rule_count;
}

namespace {

const hbs_rule_entry *first_rule() {
    return static_cast<const hbs_rule_entry *>(hbs_list_first(hbs_pool::rule));
}

const hbs_rule_entry *rule_after(const hbs_rule_entry *entry) {
    return static_cast<const hbs_rule_entry *>(hbs_list_next(hbs_pool::rule, entry));
}

bool is_of_device(const hbs_rule_entry *entry, uint8_t type, const uint8_t mac[6]) {
    return entry->type == type && memcmp(entry->mac, mac, sizeof entry->mac) == 0;
}

bool is_rule(const hbs_rule_entry *entry, uint8_t type, const uint8_t mac[6], const uint32_t p[3]) {
    return is_of_device(entry, type, mac) && std::equal(p, p + 3, entry->p);
}

const hbs_rule_entry *find_rule(uint8_t type, const uint8_t mac[6], const uint32_t p[7]) {
    const hbs_rule_entry *entry = first_rule();
    while (entry != nullptr && !is_rule(entry, type, mac, p))
        entry = rule_after(entry);
    return entry;
}

const hbs_rule_entry *find_instance(uint32_t instance) {
    const hbs_rule_entry *entry = first_rule();
    while (entry != nullptr && entry->key[1] != instance)
        entry = rule_after(entry);
    return entry;
}

void fill_entry(hbs_rule_entry *entry, uint8_t type, const uint8_t mac[6], const uint32_t p[7],
                uint32_t instance) {
    entry->count = 2;
    entry->key[0] = RULE_KEY;
    entry->key[1] = instance;
    memcpy(entry->mac, mac, sizeof entry->mac);
    entry->type = type;
    std::copy_n(p, PARAMETERS, entry->p);
}

} // namespace

void hbs_file_update_rule_idx(uint8_t type, const uint8_t mac[6], const uint32_t p[7]) {
    const hbs_shm_hold hold;
    if (const hbs_rule_entry *same = find_rule(type, mac, p); same != nullptr) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_file_update_rule_idx : index already exists (%s)",
                hbs_rule_entry_text(same).text);
        return;
    }
    auto *entry = static_cast<hbs_rule_entry *>(hbs_pool_take(hbs_pool::rule));
    if (entry == nullptr) {
        HBS_LOG(HBS_ERROR,
                "HOSTBASE: hbs_file_update_rule_idx : failed to allocate memory, current count %ul",
                rule_count);
        return;
    }
    uint32_t instance = rule_count + 1;
    fill_entry(entry, type, mac, p, instance);
    const hbs_rule_entry *old = find_instance(instance);
    hbs_list_link(hbs_pool::rule, entry, old);
    // The replaced element is not given back: it stays out of use until the next flush, which is kept.
    if (old != nullptr)
        hbs_list_unlink(hbs_pool::rule, old);
    else
        rule_count = instance;
}

namespace {

void lower_instances_above(uint32_t instance) {
    for (const hbs_rule_entry *entry = first_rule(); entry != nullptr; entry = rule_after(entry))
        if (entry->key[1] > instance)
            static_cast<hbs_rule_entry *>(hbs_pool_edit(hbs_pool::rule, entry))->key[1]--;
}

} // namespace

void hbs_file_remove_rule_idx(uint8_t type, const uint8_t mac[6], uint32_t p1, uint32_t p2, uint32_t p3) {
    const hbs_shm_hold hold;
    const uint32_t p[3] = {p1, p2, p3};
    uint32_t last_freed = 0;
    const hbs_rule_entry *after = nullptr;
    for (const hbs_rule_entry *entry = first_rule(); entry != nullptr; entry = after) {
        after = rule_after(entry);
        if (!is_rule(entry, type, mac, p))
            continue;
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_file_remove_rule_idx : client found (%s)",
                hbs_rule_entry_text(entry).text);
        last_freed = entry->key[1];
        hbs_list_unlink(hbs_pool::rule, entry);
        hbs_pool_give(hbs_pool::rule, entry);
        if (rule_count > 0)
            rule_count--;
    }
    // By one also when several were freed, and only above the last of them, which is kept.
    if (last_freed != 0)
        lower_instances_above(last_freed);
}

namespace {

// Puts a taken element in the place of the entry with its instance, which is given back, or appends it.
void put_rule(hbs_rule_entry *entry, uint8_t type, const uint8_t mac[6], const uint32_t p[7],
              uint32_t instance) {
    fill_entry(entry, type, mac, p, instance);
    const hbs_rule_entry *old = find_instance(instance);
    hbs_list_link(hbs_pool::rule, entry, old);
    if (old == nullptr) {
        rule_count++;
        return;
    }
    hbs_list_unlink(hbs_pool::rule, old);
    hbs_pool_give(hbs_pool::rule, old);
}

} // namespace

void hbs_file_update_rule_tr69_tod(uint8_t type, const uint8_t mac[6], const uint32_t p[7],
                                   uint32_t instance) {
    const hbs_shm_hold hold;
    uint32_t position = 1;
    const hbs_rule_entry *found = first_rule();
    while (found != nullptr && !(is_of_device(found, type, mac) && found->key[1] == instance)) {
        found = rule_after(found);
        position++;
    }
    if (found == nullptr)
        return;
    HBS_LOG(HBS_INFO, "HOSTBASE: hbs_file_update_rule_tr69_tod : index found exists (%s)",
            hbs_rule_entry_text(found).text);
    if (std::equal(p, p + 3, found->p))
        return;
    auto *entry = static_cast<hbs_rule_entry *>(hbs_pool_take(hbs_pool::rule));
    if (entry == nullptr) {
        HBS_LOG(HBS_ERROR,
                "HOSTBASE: hbs_file_update_rule_tr69_tod : failed to allocate memory, current count %ul",
                rule_count);
        return;
    }
    put_rule(entry, type, mac, p, position);
}

void hbs_file_update_rule_tr69_idx(uint8_t type, const uint8_t mac[6], const uint32_t p[7],
                                   uint32_t instance) {
    const hbs_shm_hold hold;
    uint32_t position = 1;
    const hbs_rule_entry *found = first_rule();
    while (found != nullptr && !(is_rule(found, type, mac, p) && found->key[1] == instance)) {
        found = rule_after(found);
        position++;
    }
    if (found != nullptr) {
        HBS_LOG(HBS_INFO, "HOSTBASE: hbs_file_update_rule_tr69_idx : index found exists (%s)",
                hbs_rule_entry_text(found).text);
        if (std::equal(p + 4, p + PARAMETERS, found->p + 4))
            return;
    }
    auto *entry = static_cast<hbs_rule_entry *>(hbs_pool_take(hbs_pool::rule));
    if (entry == nullptr) {
        HBS_LOG(HBS_ERROR,
                "HOSTBASE: hbs_file_update_rule_tr69_idx : failed to allocate memory, current count %ul",
                rule_count);
        return;
    }
    put_rule(entry, type, mac, p, found != nullptr ? position : rule_count + 1);
}

void hbs_rule_index_clear() {
    hbs_pool_give_all(hbs_pool::rule);
    rule_count = 0;
}
