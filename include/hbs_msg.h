/* Command socket: one datagram, one message. Byte 0 is the code; integers are in host order at any
 * offset (byte-packed), addresses and MACs are raw bytes in network order, texts are NUL-terminated
 * within their field. Commands are answered with one signed 32-bit integer in host order. A sender
 * that wants the answer must be bound to a path of its own. Valid C11 and C++20. */
#ifndef HBS_MSG_H
#define HBS_MSG_H

#include <stdint.h>

#include "hbs_db.h"

#ifdef __cplusplus
extern "C" {
#endif

#define HBS_SOCKET_PATH HBS_RUNTIME_DIR "/tmp/clientlist_sock"
#define HBS_MSG_MAX 2048 /* longer datagrams are cut */

#define HBS_FAMILY_IPV4 2  /* AF_INET */
#define HBS_FAMILY_IPV6 10 /* AF_INET6 */

typedef enum hbs_code {
    HBS_CMD_SET_ROUTE_MODE = 1,
    HBS_CMD_SET_STATIC_LEASE = 2,
    HBS_CMD_CLR_STATIC_LEASE = 3,
    HBS_CMD_SET_INTERNAL_LEASE = 4,
    HBS_CMD_SET_TRUSTED = 5,
    HBS_CMD_CLR_TRUSTED = 6,
    HBS_CMD_SET_MACFILTER = 7,
    HBS_CMD_CLR_MACFILTER = 8,
    HBS_CMD_RESET_DEFAULTS = 9,
    HBS_CMD_CLR_RULE_TOD = 11,
    HBS_CMD_SET_RULE_TOD = 12,
    HBS_CMD_MOD_MACFILTER = 13,
    HBS_CMD_DUMP = 14,
    HBS_EVENT_SERVER = 101,
    HBS_EVENT_SUBNET_MASK = 102, /* the one event that is answered */
    HBS_EVENT_WIFI_ASSOC = 103,
    HBS_EVENT_WIFI_DISASSOC = 104,
    HBS_EVENT_DHCPV4_LEASE = 105,
    HBS_EVENT_DHCPV6_LEASE = 106,
    HBS_EVENT_DHCPV4_INFO = 107,
    HBS_EVENT_DHCPV6_RELEASE = 108,
    HBS_EVENT_DHCPV4_RELEASE = 109,
    HBS_EVENT_WIFI_ASSOC_INFO = 110,
    HBS_CMD_SET_COMMENT_HOST = 111,
    HBS_EVENT_XWIFI_CHANGED = 112
} hbs_code;

#define HBS_SELECT_MAC 0x11 /* selectors of the trust commands */
#define HBS_SELECT_IPV4 0x12
#define HBS_SELECT_IPV6 0x13

#define HBS_LIST_WHITE 1 /* list types of the filter and rule commands */
#define HBS_LIST_BLACK 2

#define HBS_UNKNOWN_U32 0xFFFFFFFFu /* network or adapter of a lease: the daemon works it out */

#define HBS_PACKED __attribute__((packed))

/* 1 */
typedef struct hbs_msg_route_mode {
    uint8_t code;
    uint8_t mode; /* 0 bridge, non-zero routed */
} HBS_PACKED hbs_msg_route_mode;

/* 2 */
typedef struct hbs_msg_set_static_lease {
    uint8_t code;
    uint8_t unused1;
    uint16_t nwidx; /* only the low byte is used */
    uint16_t family;
    uint8_t unused6[2];
    uint8_t ipv4[4];
    uint8_t ipv6[16];
    uint8_t mac[HBS_MAC_SIZE];
    char comment[HBS_COMMENT_SIZE];
    char host[HBS_HOST_SIZE];
} HBS_PACKED hbs_msg_set_static_lease;

/* 3 */
typedef struct hbs_msg_clr_static_lease {
    uint8_t code;
    uint8_t unused1[3];
    uint16_t family;
    uint8_t unused6[2];
    uint8_t ipv4[4];
    uint8_t ipv6[16];
} HBS_PACKED hbs_msg_clr_static_lease;

/* 4: family and addresses stand elsewhere than in code 2, and must stay there */
typedef struct hbs_msg_set_internal_lease {
    uint8_t code;
    uint8_t unused1;
    uint16_t family;
    uint8_t ipv4[4];
    uint8_t ipv6[16];
    uint8_t mac[HBS_MAC_SIZE];
} HBS_PACKED hbs_msg_set_internal_lease;

/* 5, 6 */
typedef struct hbs_msg_trusted {
    uint8_t code;
    uint8_t action; /* 1 site, 2 service */
    uint8_t selector;
    uint8_t mac[HBS_MAC_SIZE];
    uint8_t unused9[3];
    uint8_t ipv4[4];
    uint8_t ipv6[16];
    char comment[HBS_COMMENT_SIZE]; /* code 5 only */
} HBS_PACKED hbs_msg_trusted;

/* 7, 8, 11, 12, 13 */
typedef struct hbs_msg_filter {
    uint8_t code;
    uint8_t type; /* HBS_LIST_WHITE or HBS_LIST_BLACK */
    uint8_t mac[HBS_MAC_SIZE];
    uint32_t value1;
    uint16_t value2;
    uint16_t value3;
    char comment[HBS_COMMENT_SIZE];
    uint8_t new_mac[HBS_MAC_SIZE]; /* code 13 only */
    uint8_t unused278[2];
    uint32_t rule_word; /* codes 11 and 12 only */
    uint32_t value4;
    uint32_t value5;
    uint32_t value6;
    char description[HBS_LIST_TEXT_SIZE];
    char keyword_list[HBS_LIST_TEXT_SIZE];
    char domain_list[HBS_LIST_TEXT_SIZE];
    uint32_t filter_word; /* codes 7 and 13 only */
} HBS_PACKED hbs_msg_filter;

/* 101 */
typedef struct hbs_msg_server {
    uint8_t code;
    uint8_t unused1[3];
    uint32_t index;   /* rndidx, from 1 */
    uint32_t started; /* non-zero when the DHCP server of that network started */
} HBS_PACKED hbs_msg_server;

/* 102 */
typedef struct hbs_msg_subnet {
    uint8_t code;
    uint8_t unused1[3];
    uint32_t index;    /* rndidx, from 1 */
    uint32_t old_ipv4; /* host order */
    uint32_t new_ipv4; /* host order */
    uint32_t prefix_length;
} HBS_PACKED hbs_msg_subnet;

/* 103, 104 */
typedef struct hbs_msg_wifi_assoc {
    uint8_t code;
    char mac_text[18];
    uint8_t unused19[5];
    uint32_t ssid; /* from 1 */
} HBS_PACKED hbs_msg_wifi_assoc;

/* 110 */
typedef struct hbs_msg_wifi_info {
    uint8_t code;
    uint8_t unused1[3];
    uint8_t mac[HBS_MAC_SIZE];
} HBS_PACKED hbs_msg_wifi_info;

/* 105, 107; 109 is its first 20 bytes */
typedef struct hbs_msg_dhcpv4 {
    uint8_t code;
    uint8_t mac[HBS_MAC_SIZE];
    uint8_t unused7;
    uint8_t ipv4[4];
    uint32_t dynamic; /* non-zero for a dynamic lease */
    uint32_t seconds;
    char host[128];
    char ifname[64];
    char oui[HBS_OUI_SIZE];
    char serial_number[HBS_SERIAL_SIZE];
    char product_class[HBS_PRODUCT_SIZE];
    char lease_file[259];  /* code 105 only */
    uint32_t nwidx;        /* HBS_UNKNOWN_U32 = unknown */
    uint32_t adapter_type; /* HBS_UNKNOWN_U32 = unknown */
} HBS_PACKED hbs_msg_dhcpv4;

/* 109 */
typedef struct hbs_msg_dhcpv4_release {
    uint8_t code;
    uint8_t mac[HBS_MAC_SIZE];
    uint8_t unused7;
    uint8_t ipv4[4];
    uint32_t dynamic;
    uint32_t seconds;
} HBS_PACKED hbs_msg_dhcpv4_release;

/* 106; 108 is its first 33 bytes */
typedef struct hbs_msg_dhcpv6 {
    uint8_t code;
    uint8_t ll[16];
    uint8_t ipv6[16];
    uint8_t unused33[3];
    uint32_t lease_end; /* seconds since the epoch, 0 = static lease */
    char host[128];
    char oui[HBS_OUI_SIZE];
    char serial_number[HBS_SERIAL_SIZE];
    char product_class[HBS_PRODUCT_SIZE];
    char lease_file[HBS_LEASE_FILE_SIZE];
} HBS_PACKED hbs_msg_dhcpv6;

/* 108 */
typedef struct hbs_msg_dhcpv6_release {
    uint8_t code;
    uint8_t ll[16];
    uint8_t ipv6[16];
} HBS_PACKED hbs_msg_dhcpv6_release;

/* 111 */
typedef struct hbs_msg_comment_host {
    uint8_t code;
    uint8_t unused1;
    uint16_t family;
    uint8_t ipv4[4];
    uint8_t ipv6[16];
    char comment[HBS_COMMENT_SIZE];
    char host[HBS_HOST_SIZE];
} HBS_PACKED hbs_msg_comment_host;

#ifdef __cplusplus
}
#endif
#endif
