// Where the six pools of the segment and their lists lie: the one table that the daemon, which writes them,
// and the reader library, which follows them, go by.
#pragma once

#include <cstddef>
#include <cstdint>

#include <hbs_db.h>

// In the order in which they lie. Each pool has one list.
enum class hbs_pool { clients, ip, interface, dhcp, rule, primary };
constexpr int HBS_POOLS = 6;

struct hbs_pool_layout {
    uint32_t head;      // offset of the list's head
    uint32_t first;     // offset of the first element
    uint32_t size;      // bytes of one element
    uint32_t capacity;  // elements in a segment of full size
    uint32_t reference; // place of the word that is zeroed in a free element; 0 = no such word
    uint32_t key_words; // key words that an entry may have; 0 for the client list
};

inline constexpr hbs_pool_layout hbs_pool_layouts[HBS_POOLS] = {
    {offsetof(hbs_db, clients), offsetof(hbs_db, client_pool), sizeof(hbs_client), HBS_MAX_CLIENTS,
     offsetof(hbs_client, dbpos), 0},
    {offsetof(hbs_db, ip_index), offsetof(hbs_db, ip_pool), sizeof(hbs_ip_entry), HBS_MAX_IP_ENTRIES,
     offsetof(hbs_ip_entry, dbpos), HBS_IP_KEY_WORDS},
    {offsetof(hbs_db, if_index), offsetof(hbs_db, if_pool), sizeof(hbs_if_entry), HBS_MAX_IF_ENTRIES,
     offsetof(hbs_if_entry, dbpos), 2},
    {offsetof(hbs_db, dhcp_index), offsetof(hbs_db, dhcp_pool), sizeof(hbs_ip_entry), HBS_MAX_DHCP_ENTRIES,
     offsetof(hbs_ip_entry, dbpos), HBS_IP_KEY_WORDS},
    {offsetof(hbs_db, rule_index), offsetof(hbs_db, rule_pool), sizeof(hbs_rule_entry), HBS_MAX_RULE_ENTRIES,
     0, 2},
    {offsetof(hbs_db, pri_index), offsetof(hbs_db, pri_pool), sizeof(hbs_pri_entry), HBS_MAX_PRI_ENTRIES,
     offsetof(hbs_pri_entry, dbpos), 1},
};

constexpr const hbs_pool_layout &hbs_layout_of(hbs_pool pool) {
    return hbs_pool_layouts[static_cast<int>(pool)];
}
