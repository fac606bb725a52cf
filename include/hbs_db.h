/* The client database in shared memory: the layout that the daemon writes and every reader process
 * maps. Plain fixed-width fields, the same bytes on every ABI; links are offsets from the segment
 * base. Integers are in native order, addresses in network order, strings NUL-terminated and
 * NUL-padded. Valid C11 and C++20. */
#ifndef HBS_DB_H
#define HBS_DB_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Two directories of the gateway; a build for another place defines them, for the daemon and its readers
 * alike. */
#ifndef HBS_RUNTIME_DIR
#define HBS_RUNTIME_DIR "/var"
#endif
#ifndef HBS_PERSISTENT_DIR
#define HBS_PERSISTENT_DIR "/nvram/8"
#endif

#define HBS_SHM_KEY_FILE HBS_RUNTIME_DIR "/tmp/hostbase_shm.key"
#define HBS_SHM_PROJECT_ID 78 /* 'N', second argument of ftok */
#define HBS_SEMAPHORE_NAME "/QUARN_SEM_HOSTBASE"

/* --- state flags (hbs_client.flags) --------------------------------------------------------- */
#define HBS_FLAG_ASSOC 0x00000001u   /* associated to a Wi-Fi access point */
#define HBS_FLAG_REACH 0x00000002u   /* neighbour entry reachable */
#define HBS_FLAG_REACH_2 0x00000004u /* set together with REACH; its meaning is not named */
#define HBS_FLAG_DYNIP4 0x00000010u  /* IPv4 address from a dynamic lease */
#define HBS_FLAG_STIP4 0x00000020u   /* IPv4 address from a static lease */
#define HBS_FLAG_USRIP4 0x00000040u  /* IPv4 address entered by the user */
#define HBS_FLAG_DYNIP6 0x00000100u
#define HBS_FLAG_STIP6 0x00000200u
#define HBS_FLAG_USRIP6 0x00000400u
#define HBS_FLAG_ONLINE 0x00001000u
#define HBS_FLAG_TIMER_LEASE 0x20000000u    /* timer of kind 2 armed */
#define HBS_FLAG_TIMER_ONLINE 0x40000000u   /* timer of kind 3 armed */
#define HBS_FLAG_TIMER_DHCPWAIT 0x80000000u /* timer of kind 1 armed */

#define HBS_FLAGS_IP4 0x00000070u  /* where the IPv4 address comes from */
#define HBS_FLAGS_IP6 0x00000700u  /* where the IPv6 address comes from */
#define HBS_FLAGS_ADDR 0x00000770u /* any of them: the client has an address of some kind */

/* Change marks: readers compare flags masked with ~HBS_CHANGED_MASK to ignore them. */
#define HBS_CHANGED_MASK 0x001F0000u
#define HBS_CHANGED 0x00010000u         /* set by every flag change and most field setters */
#define HBS_CHANGED_MERGED 0x00090000u  /* address taken over by a merge */
#define HBS_CHANGED_BSSID 0x000E0000u   /* client moved to another SSID */
#define HBS_CHANGED_ADDRESS 0x000F0000u /* address or network changed */

/* --- trust bits (hbs_client.trust) ----------------------------------------------------------- */
#define HBS_TRUST_SITE 0x1u
#define HBS_TRUST_SERV 0x2u
#define HBS_TRUST_WHITE 0x4u
#define HBS_TRUST_BLACK 0x8u
#define HBS_TRUST_USER 0x10u       /* comment or host name given by the user */
#define HBS_TRUST_PROTECTED 0x1Fu  /* any of these: never reclaimed */
#define HBS_TRUST_REMEMBERED 0x3Fu /* any of these: survives the end of its lease */

/* --- adapters (hbs_client.adapter_type) ------------------------------------------------------- */
#define HBS_ADAPTER_UNKNOWN 0
#define HBS_ADAPTER_ETHERNET 1
#define HBS_ADAPTER_USB 2
#define HBS_ADAPTER_MOCA 3
#define HBS_ADAPTER_WIFI 5

#define HBS_DBPOS_NONE 0u
#define HBS_DBPOS_INVALID 0xFFFFFFFFu /* treated like HBS_DBPOS_NONE */

/* --- field sizes ------------------------------------------------------------------------------ */
#define HBS_MAC_SIZE 6
#define HBS_HOST_SIZE 64
#define HBS_COMMENT_SIZE 256
#define HBS_OUI_SIZE 7
#define HBS_SERIAL_SIZE 65
#define HBS_PRODUCT_SIZE 65
#define HBS_IFNAME_SIZE 16
#define HBS_LEASE_FILE_SIZE 128
#define HBS_LIST_TEXT_SIZE 256 /* description, keyword_list, domain_list */
#define HBS_DATE_SIZE 8        /* year high, year low, month 1-12, day, hour, minute, second, 0 */
#define HBS_LINK_FIGURES 5

/* --- one client, 1744 bytes -------------------------------------------------------------------- */
typedef struct hbs_client {
    uint32_t next; /* published: offset of the next element from the segment base */
    uint32_t prev;
    uint32_t dbpos;           /* offset of the published copy; 0 or 0xFFFFFFFF = not published */
    uint32_t client_id;       /* never 0; also the value that the client's timers carry */
    uint32_t dhcp_wait_timer; /* handle words: non-zero while the timer exists */
    uint32_t lease_timer;
    uint32_t online_timer;
    uint32_t word28;           /* no operation sets it; copied with the record */
    uint8_t mac[HBS_MAC_SIZE]; /* all zero for a client known by address only */
    uint8_t align38[2];
    uint8_t ipv4[4];  /* 0.0.0.0 = none */
    uint8_t ipv6[16]; /* global address, :: = none */
    uint8_t ll[16];   /* link-local address, :: = none */
    char host[HBS_HOST_SIZE];
    char device_name[HBS_HOST_SIZE];
    char comment[HBS_COMMENT_SIZE];
    char oui[HBS_OUI_SIZE];
    char serial_number[HBS_SERIAL_SIZE];
    char product_class[HBS_PRODUCT_SIZE];
    uint8_t lease_end[HBS_DATE_SIZE]; /* all zero = none; local time */
    uint8_t lease_v6_end[HBS_DATE_SIZE];
    uint8_t status_time[HBS_DATE_SIZE];
    uint8_t nwidx;      /* LAN network; 8-15 fold onto 0-7 for indexing */
    uint8_t wifi_index; /* SSID number - 1 */
    uint8_t adapter_type;
    uint8_t switch_port; /* external-switch port, Ethernet clients only */
    char ifname[HBS_IFNAME_SIZE];
    uint8_t hotspot; /* non-zero when ifname is a hotspot interface */
    uint8_t align642[2];
    uint32_t ifindex;
    uint32_t trust;
    uint32_t flags;
    char lease_file[HBS_LEASE_FILE_SIZE]; /* file name under /var/tmp, deleted with the client */
    char lease_file6[HBS_LEASE_FILE_SIZE];
    uint32_t lease_start_uptime; /* seconds of uptime at the first lease or join; 0 = none */
    uint32_t wifi_link_info[HBS_LINK_FIGURES];
    uint32_t online_time; /* CLOCK_MONOTONIC seconds of creation or last ONLINE change; compared signed */
    uint32_t last_joinReqTimeStamp; /* time() of the last join of the lease/association set */
    uint32_t last_dhcpReqTimeStamp; /* time() of the last join of the reachability set */
    uint32_t join_req_count;
    uint32_t dhcp_req_count;
    uint32_t flap_count;
    uint32_t dhcp_flap_count;
    uint32_t word964;
    char description[HBS_LIST_TEXT_SIZE];
    char keyword_list[HBS_LIST_TEXT_SIZE];
    char domain_list[HBS_LIST_TEXT_SIZE];
    int32_t mac_filter;
    uint32_t word1740;
} hbs_client;

/* --- index entries ------------------------------------------------------------------------------ */
#define HBS_IP_KEY_WORDS 19
#define HBS_KEY_IPV4 1u /* address-type key word */
#define HBS_KEY_IPV6 2u
#define HBS_NETWORK_KEY 200u /* network key = this + folded nwidx */

/* The head that every kind shares; `key` has `count` words. */
typedef struct hbs_index_entry {
    uint32_t next;
    uint32_t prev;
    uint32_t count;
    uint32_t key[1];
} hbs_index_entry;

/* IP index and DHCP-option IP index, 92 bytes. */
typedef struct hbs_ip_entry {
    uint32_t next;
    uint32_t prev;
    uint32_t count;
    uint32_t key[HBS_IP_KEY_WORDS];
    uint32_t dbpos; /* the client; 0 in a free element */
} hbs_ip_entry;

/* Interface index, 24 bytes: key words are the network key and the instance. */
typedef struct hbs_if_entry {
    uint32_t next;
    uint32_t prev;
    uint32_t count;
    uint32_t key[2];
    uint32_t dbpos;
} hbs_if_entry;

/* Rule index, 56 bytes: key words are 200 and the rule instance; the entry carries the rule. */
typedef struct hbs_rule_entry {
    uint32_t next;
    uint32_t prev;
    uint32_t count;
    uint32_t key[2];
    uint8_t mac[HBS_MAC_SIZE];
    uint8_t type; /* 1 white list, 2 black list */
    uint8_t zero;
    uint32_t p[7];
} hbs_rule_entry;

/* Primary index, 20 bytes: the key word is the instance; in order of creation. */
typedef struct hbs_pri_entry {
    uint32_t next;
    uint32_t prev;
    uint32_t count;
    uint32_t key[1];
    uint32_t dbpos;
} hbs_pri_entry;

/* --- the segment, 221236 bytes ------------------------------------------------------------------- */
#define HBS_MAX_CLIENTS 96
#define HBS_MAX_IP_ENTRIES 288
#define HBS_MAX_IF_ENTRIES 96
#define HBS_MAX_DHCP_ENTRIES 192
#define HBS_MAX_RULE_ENTRIES 96
#define HBS_MAX_PRI_ENTRIES 96
#define HBS_SHM_SIZE 221236u

/* Offsets of the first and last element; an empty list holds its own offset in both words. */
typedef struct hbs_list_head {
    uint32_t next;
    uint32_t prev;
} hbs_list_head;

typedef struct hbs_db {
    uint32_t reserved; /* not written by the daemon */
    hbs_list_head clients;
    hbs_list_head ip_index;
    hbs_list_head if_index;
    hbs_list_head dhcp_index;
    hbs_list_head rule_index;
    hbs_list_head pri_index;
    hbs_client client_pool[HBS_MAX_CLIENTS];
    hbs_ip_entry ip_pool[HBS_MAX_IP_ENTRIES];
    hbs_if_entry if_pool[HBS_MAX_IF_ENTRIES];
    hbs_ip_entry dhcp_pool[HBS_MAX_DHCP_ENTRIES];
    hbs_rule_entry rule_pool[HBS_MAX_RULE_ENTRIES];
    hbs_pri_entry pri_pool[HBS_MAX_PRI_ENTRIES];
} hbs_db;

#ifdef __cplusplus
}
#endif
#endif
