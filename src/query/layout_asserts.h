/* Compile-time asserts of every layout that leaves the daemon. Included once by a C and once by a
 * C++ translation unit, so that both languages are held to the same bytes. */
#ifndef HBS_QUERY_LAYOUT_ASSERTS_H
#define HBS_QUERY_LAYOUT_ASSERTS_H

#include <stddef.h>

#include <hbs_db.h>
#include <hbs_msg.h>

#ifdef __cplusplus
#define HBS_LAYOUT_ASSERT(condition, who) static_assert(condition, who)
#define HBS_LAYOUT_SIZE(type, field) sizeof(type::field)
#else
#define HBS_LAYOUT_ASSERT(condition, who) _Static_assert(condition, who)
#define HBS_LAYOUT_SIZE(type, field) sizeof(((type *)0)->field)
#endif

#define HBS_LAYOUT_FIELD(type, field, offset, size, who)                                                     \
    HBS_LAYOUT_ASSERT(offsetof(type, field) == (offset) && HBS_LAYOUT_SIZE(type, field) == (size),           \
                      #type "." #field ": " who)
#define HBS_LAYOUT_TOTAL(type, size, who) HBS_LAYOUT_ASSERT(sizeof(type) == (size), #type ": " who)

#define HBS_LAYOUT_READERS "every reader process maps the segment with this layout, whenever it was built"
#define HBS_LAYOUT_SENDERS "every sender of the command socket builds its datagrams with this layout"

#define HBS_LAYOUT_SHARED(type, field, offset, size)                                                         \
    HBS_LAYOUT_FIELD(type, field, offset, size, HBS_LAYOUT_READERS)
#define HBS_LAYOUT_SENT(type, field, offset, size)                                                           \
    HBS_LAYOUT_FIELD(type, field, offset, size, HBS_LAYOUT_SENDERS)

/* One client. The persisted and announced fields are read by name, but the segment is read by offset. */
HBS_LAYOUT_SHARED(hbs_client, next, 0, 4);
HBS_LAYOUT_SHARED(hbs_client, prev, 4, 4);
HBS_LAYOUT_SHARED(hbs_client, dbpos, 8, 4);
HBS_LAYOUT_SHARED(hbs_client, client_id, 12, 4);
HBS_LAYOUT_SHARED(hbs_client, dhcp_wait_timer, 16, 4);
HBS_LAYOUT_SHARED(hbs_client, lease_timer, 20, 4);
HBS_LAYOUT_SHARED(hbs_client, online_timer, 24, 4);
HBS_LAYOUT_SHARED(hbs_client, word28, 28, 4);
HBS_LAYOUT_SHARED(hbs_client, mac, 32, 6);
HBS_LAYOUT_SHARED(hbs_client, align38, 38, 2);
HBS_LAYOUT_SHARED(hbs_client, ipv4, 40, 4);
HBS_LAYOUT_SHARED(hbs_client, ipv6, 44, 16);
HBS_LAYOUT_SHARED(hbs_client, ll, 60, 16);
HBS_LAYOUT_SHARED(hbs_client, host, 76, 64);
HBS_LAYOUT_SHARED(hbs_client, device_name, 140, 64);
HBS_LAYOUT_SHARED(hbs_client, comment, 204, 256);
HBS_LAYOUT_SHARED(hbs_client, oui, 460, 7);
HBS_LAYOUT_SHARED(hbs_client, serial_number, 467, 65);
HBS_LAYOUT_SHARED(hbs_client, product_class, 532, 65);
HBS_LAYOUT_SHARED(hbs_client, lease_end, 597, 8);
HBS_LAYOUT_SHARED(hbs_client, lease_v6_end, 605, 8);
HBS_LAYOUT_SHARED(hbs_client, status_time, 613, 8);
HBS_LAYOUT_SHARED(hbs_client, nwidx, 621, 1);
HBS_LAYOUT_SHARED(hbs_client, wifi_index, 622, 1);
HBS_LAYOUT_SHARED(hbs_client, adapter_type, 623, 1);
HBS_LAYOUT_SHARED(hbs_client, switch_port, 624, 1);
HBS_LAYOUT_SHARED(hbs_client, ifname, 625, 16);
HBS_LAYOUT_SHARED(hbs_client, hotspot, 641, 1);
HBS_LAYOUT_SHARED(hbs_client, align642, 642, 2);
HBS_LAYOUT_SHARED(hbs_client, ifindex, 644, 4);
HBS_LAYOUT_SHARED(hbs_client, trust, 648, 4);
HBS_LAYOUT_SHARED(hbs_client, flags, 652, 4);
HBS_LAYOUT_SHARED(hbs_client, lease_file, 656, 128);
HBS_LAYOUT_SHARED(hbs_client, lease_file6, 784, 128);
HBS_LAYOUT_SHARED(hbs_client, lease_start_uptime, 912, 4);
HBS_LAYOUT_SHARED(hbs_client, wifi_link_info, 916, 20);
HBS_LAYOUT_SHARED(hbs_client, online_time, 936, 4);
HBS_LAYOUT_SHARED(hbs_client, last_joinReqTimeStamp, 940, 4);
HBS_LAYOUT_SHARED(hbs_client, last_dhcpReqTimeStamp, 944, 4);
HBS_LAYOUT_SHARED(hbs_client, join_req_count, 948, 4);
HBS_LAYOUT_SHARED(hbs_client, dhcp_req_count, 952, 4);
HBS_LAYOUT_SHARED(hbs_client, flap_count, 956, 4);
HBS_LAYOUT_SHARED(hbs_client, dhcp_flap_count, 960, 4);
HBS_LAYOUT_SHARED(hbs_client, word964, 964, 4);
HBS_LAYOUT_SHARED(hbs_client, description, 968, 256);
HBS_LAYOUT_SHARED(hbs_client, keyword_list, 1224, 256);
HBS_LAYOUT_SHARED(hbs_client, domain_list, 1480, 256);
HBS_LAYOUT_SHARED(hbs_client, mac_filter, 1736, 4);
HBS_LAYOUT_SHARED(hbs_client, word1740, 1740, 4);
HBS_LAYOUT_TOTAL(hbs_client, 1744, HBS_LAYOUT_READERS);

/* Index entries. The management agent walks them for its next-row queries. */
HBS_LAYOUT_SHARED(hbs_index_entry, next, 0, 4);
HBS_LAYOUT_SHARED(hbs_index_entry, prev, 4, 4);
HBS_LAYOUT_SHARED(hbs_index_entry, count, 8, 4);
HBS_LAYOUT_SHARED(hbs_index_entry, key, 12, 4);
HBS_LAYOUT_TOTAL(hbs_index_entry, 16, HBS_LAYOUT_READERS);
HBS_LAYOUT_SHARED(hbs_ip_entry, next, 0, 4);
HBS_LAYOUT_SHARED(hbs_ip_entry, prev, 4, 4);
HBS_LAYOUT_SHARED(hbs_ip_entry, count, 8, 4);
HBS_LAYOUT_SHARED(hbs_ip_entry, key, 12, 76);
HBS_LAYOUT_SHARED(hbs_ip_entry, dbpos, 88, 4);
HBS_LAYOUT_TOTAL(hbs_ip_entry, 92, HBS_LAYOUT_READERS);
HBS_LAYOUT_SHARED(hbs_if_entry, next, 0, 4);
HBS_LAYOUT_SHARED(hbs_if_entry, prev, 4, 4);
HBS_LAYOUT_SHARED(hbs_if_entry, count, 8, 4);
HBS_LAYOUT_SHARED(hbs_if_entry, key, 12, 8);
HBS_LAYOUT_SHARED(hbs_if_entry, dbpos, 20, 4);
HBS_LAYOUT_TOTAL(hbs_if_entry, 24, HBS_LAYOUT_READERS);
HBS_LAYOUT_SHARED(hbs_rule_entry, next, 0, 4);
HBS_LAYOUT_SHARED(hbs_rule_entry, prev, 4, 4);
HBS_LAYOUT_SHARED(hbs_rule_entry, count, 8, 4);
HBS_LAYOUT_SHARED(hbs_rule_entry, key, 12, 8);
HBS_LAYOUT_SHARED(hbs_rule_entry, mac, 20, 6);
HBS_LAYOUT_SHARED(hbs_rule_entry, type, 26, 1);
HBS_LAYOUT_SHARED(hbs_rule_entry, zero, 27, 1);
HBS_LAYOUT_SHARED(hbs_rule_entry, p, 28, 28);
HBS_LAYOUT_TOTAL(hbs_rule_entry, 56, HBS_LAYOUT_READERS);
HBS_LAYOUT_SHARED(hbs_pri_entry, next, 0, 4);
HBS_LAYOUT_SHARED(hbs_pri_entry, prev, 4, 4);
HBS_LAYOUT_SHARED(hbs_pri_entry, count, 8, 4);
HBS_LAYOUT_SHARED(hbs_pri_entry, key, 12, 4);
HBS_LAYOUT_SHARED(hbs_pri_entry, dbpos, 16, 4);
HBS_LAYOUT_TOTAL(hbs_pri_entry, 20, HBS_LAYOUT_READERS);

/* The segment. */
HBS_LAYOUT_SHARED(hbs_list_head, next, 0, 4);
HBS_LAYOUT_SHARED(hbs_list_head, prev, 4, 4);
HBS_LAYOUT_TOTAL(hbs_list_head, 8, HBS_LAYOUT_READERS);
HBS_LAYOUT_SHARED(hbs_db, reserved, 0, 4);
HBS_LAYOUT_SHARED(hbs_db, clients, 4, 8);
HBS_LAYOUT_SHARED(hbs_db, ip_index, 12, 8);
HBS_LAYOUT_SHARED(hbs_db, if_index, 20, 8);
HBS_LAYOUT_SHARED(hbs_db, dhcp_index, 28, 8);
HBS_LAYOUT_SHARED(hbs_db, rule_index, 36, 8);
HBS_LAYOUT_SHARED(hbs_db, pri_index, 44, 8);
HBS_LAYOUT_SHARED(hbs_db, client_pool, 52, 167424);
HBS_LAYOUT_SHARED(hbs_db, ip_pool, 167476, 26496);
HBS_LAYOUT_SHARED(hbs_db, if_pool, 193972, 2304);
HBS_LAYOUT_SHARED(hbs_db, dhcp_pool, 196276, 17664);
HBS_LAYOUT_SHARED(hbs_db, rule_pool, 213940, 5376);
HBS_LAYOUT_SHARED(hbs_db, pri_pool, 219316, 1920);
HBS_LAYOUT_TOTAL(hbs_db, 221236, HBS_LAYOUT_READERS);
HBS_LAYOUT_ASSERT(HBS_SHM_SIZE == 221236u, "HBS_SHM_SIZE: the segment is created and checked with this size");

/* Command datagrams, in the order of their codes. */
HBS_LAYOUT_SENT(hbs_msg_route_mode, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_route_mode, mode, 1, 1);
HBS_LAYOUT_TOTAL(hbs_msg_route_mode, 2, HBS_LAYOUT_SENDERS);
HBS_LAYOUT_SENT(hbs_msg_set_static_lease, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_set_static_lease, unused1, 1, 1);
HBS_LAYOUT_SENT(hbs_msg_set_static_lease, nwidx, 2, 2);
HBS_LAYOUT_SENT(hbs_msg_set_static_lease, family, 4, 2);
HBS_LAYOUT_SENT(hbs_msg_set_static_lease, unused6, 6, 2);
HBS_LAYOUT_SENT(hbs_msg_set_static_lease, ipv4, 8, 4);
HBS_LAYOUT_SENT(hbs_msg_set_static_lease, ipv6, 12, 16);
HBS_LAYOUT_SENT(hbs_msg_set_static_lease, mac, 28, 6);
HBS_LAYOUT_SENT(hbs_msg_set_static_lease, comment, 34, 256);
HBS_LAYOUT_SENT(hbs_msg_set_static_lease, host, 290, 64);
HBS_LAYOUT_TOTAL(hbs_msg_set_static_lease, 354, HBS_LAYOUT_SENDERS);
HBS_LAYOUT_SENT(hbs_msg_clr_static_lease, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_clr_static_lease, unused1, 1, 3);
HBS_LAYOUT_SENT(hbs_msg_clr_static_lease, family, 4, 2);
HBS_LAYOUT_SENT(hbs_msg_clr_static_lease, unused6, 6, 2);
HBS_LAYOUT_SENT(hbs_msg_clr_static_lease, ipv4, 8, 4);
HBS_LAYOUT_SENT(hbs_msg_clr_static_lease, ipv6, 12, 16);
HBS_LAYOUT_TOTAL(hbs_msg_clr_static_lease, 28, HBS_LAYOUT_SENDERS);
HBS_LAYOUT_SENT(hbs_msg_set_internal_lease, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_set_internal_lease, unused1, 1, 1);
HBS_LAYOUT_SENT(hbs_msg_set_internal_lease, family, 2, 2);
HBS_LAYOUT_SENT(hbs_msg_set_internal_lease, ipv4, 4, 4);
HBS_LAYOUT_SENT(hbs_msg_set_internal_lease, ipv6, 8, 16);
HBS_LAYOUT_SENT(hbs_msg_set_internal_lease, mac, 24, 6);
HBS_LAYOUT_TOTAL(hbs_msg_set_internal_lease, 30, HBS_LAYOUT_SENDERS);
HBS_LAYOUT_SENT(hbs_msg_trusted, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_trusted, action, 1, 1);
HBS_LAYOUT_SENT(hbs_msg_trusted, selector, 2, 1);
HBS_LAYOUT_SENT(hbs_msg_trusted, mac, 3, 6);
HBS_LAYOUT_SENT(hbs_msg_trusted, unused9, 9, 3);
HBS_LAYOUT_SENT(hbs_msg_trusted, ipv4, 12, 4);
HBS_LAYOUT_SENT(hbs_msg_trusted, ipv6, 16, 16);
HBS_LAYOUT_SENT(hbs_msg_trusted, comment, 32, 256);
HBS_LAYOUT_TOTAL(hbs_msg_trusted, 288, HBS_LAYOUT_SENDERS);
HBS_LAYOUT_SENT(hbs_msg_filter, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_filter, type, 1, 1);
HBS_LAYOUT_SENT(hbs_msg_filter, mac, 2, 6);
HBS_LAYOUT_SENT(hbs_msg_filter, value1, 8, 4);
HBS_LAYOUT_SENT(hbs_msg_filter, value2, 12, 2);
HBS_LAYOUT_SENT(hbs_msg_filter, value3, 14, 2);
HBS_LAYOUT_SENT(hbs_msg_filter, comment, 16, 256);
HBS_LAYOUT_SENT(hbs_msg_filter, new_mac, 272, 6);
HBS_LAYOUT_SENT(hbs_msg_filter, unused278, 278, 2);
HBS_LAYOUT_SENT(hbs_msg_filter, rule_word, 280, 4);
HBS_LAYOUT_SENT(hbs_msg_filter, value4, 284, 4);
HBS_LAYOUT_SENT(hbs_msg_filter, value5, 288, 4);
HBS_LAYOUT_SENT(hbs_msg_filter, value6, 292, 4);
HBS_LAYOUT_SENT(hbs_msg_filter, description, 296, 256);
HBS_LAYOUT_SENT(hbs_msg_filter, keyword_list, 552, 256);
HBS_LAYOUT_SENT(hbs_msg_filter, domain_list, 808, 256);
HBS_LAYOUT_SENT(hbs_msg_filter, filter_word, 1064, 4);
HBS_LAYOUT_TOTAL(hbs_msg_filter, 1068, HBS_LAYOUT_SENDERS);

/* Event datagrams, in the order of their codes. */
HBS_LAYOUT_SENT(hbs_msg_server, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_server, unused1, 1, 3);
HBS_LAYOUT_SENT(hbs_msg_server, index, 4, 4);
HBS_LAYOUT_SENT(hbs_msg_server, started, 8, 4);
HBS_LAYOUT_TOTAL(hbs_msg_server, 12, HBS_LAYOUT_SENDERS);
HBS_LAYOUT_SENT(hbs_msg_subnet, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_subnet, unused1, 1, 3);
HBS_LAYOUT_SENT(hbs_msg_subnet, index, 4, 4);
HBS_LAYOUT_SENT(hbs_msg_subnet, old_ipv4, 8, 4);
HBS_LAYOUT_SENT(hbs_msg_subnet, new_ipv4, 12, 4);
HBS_LAYOUT_SENT(hbs_msg_subnet, prefix_length, 16, 4);
HBS_LAYOUT_TOTAL(hbs_msg_subnet, 20, HBS_LAYOUT_SENDERS);
HBS_LAYOUT_SENT(hbs_msg_wifi_assoc, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_wifi_assoc, mac_text, 1, 18);
HBS_LAYOUT_SENT(hbs_msg_wifi_assoc, unused19, 19, 5);
HBS_LAYOUT_SENT(hbs_msg_wifi_assoc, ssid, 24, 4);
HBS_LAYOUT_TOTAL(hbs_msg_wifi_assoc, 28, HBS_LAYOUT_SENDERS);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, mac, 1, 6);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, unused7, 7, 1);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, ipv4, 8, 4);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, dynamic, 12, 4);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, seconds, 16, 4);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, host, 20, 128);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, ifname, 148, 64);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, oui, 212, 7);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, serial_number, 219, 65);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, product_class, 284, 65);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, lease_file, 349, 259);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, nwidx, 608, 4);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4, adapter_type, 612, 4);
HBS_LAYOUT_TOTAL(hbs_msg_dhcpv4, 616, HBS_LAYOUT_SENDERS);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4_release, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4_release, mac, 1, 6);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4_release, unused7, 7, 1);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4_release, ipv4, 8, 4);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4_release, dynamic, 12, 4);
HBS_LAYOUT_SENT(hbs_msg_dhcpv4_release, seconds, 16, 4);
HBS_LAYOUT_TOTAL(hbs_msg_dhcpv4_release, 20, HBS_LAYOUT_SENDERS);
HBS_LAYOUT_SENT(hbs_msg_dhcpv6, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_dhcpv6, ll, 1, 16);
HBS_LAYOUT_SENT(hbs_msg_dhcpv6, ipv6, 17, 16);
HBS_LAYOUT_SENT(hbs_msg_dhcpv6, unused33, 33, 3);
HBS_LAYOUT_SENT(hbs_msg_dhcpv6, lease_end, 36, 4);
HBS_LAYOUT_SENT(hbs_msg_dhcpv6, host, 40, 128);
HBS_LAYOUT_SENT(hbs_msg_dhcpv6, oui, 168, 7);
HBS_LAYOUT_SENT(hbs_msg_dhcpv6, serial_number, 175, 65);
HBS_LAYOUT_SENT(hbs_msg_dhcpv6, product_class, 240, 65);
HBS_LAYOUT_SENT(hbs_msg_dhcpv6, lease_file, 305, 128);
HBS_LAYOUT_TOTAL(hbs_msg_dhcpv6, 433, HBS_LAYOUT_SENDERS);
HBS_LAYOUT_SENT(hbs_msg_dhcpv6_release, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_dhcpv6_release, ll, 1, 16);
HBS_LAYOUT_SENT(hbs_msg_dhcpv6_release, ipv6, 17, 16);
HBS_LAYOUT_TOTAL(hbs_msg_dhcpv6_release, 33, HBS_LAYOUT_SENDERS);
HBS_LAYOUT_SENT(hbs_msg_wifi_info, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_wifi_info, unused1, 1, 3);
HBS_LAYOUT_SENT(hbs_msg_wifi_info, mac, 4, 6);
HBS_LAYOUT_TOTAL(hbs_msg_wifi_info, 10, HBS_LAYOUT_SENDERS);
HBS_LAYOUT_SENT(hbs_msg_comment_host, code, 0, 1);
HBS_LAYOUT_SENT(hbs_msg_comment_host, unused1, 1, 1);
HBS_LAYOUT_SENT(hbs_msg_comment_host, family, 2, 2);
HBS_LAYOUT_SENT(hbs_msg_comment_host, ipv4, 4, 4);
HBS_LAYOUT_SENT(hbs_msg_comment_host, ipv6, 8, 16);
HBS_LAYOUT_SENT(hbs_msg_comment_host, comment, 24, 256);
HBS_LAYOUT_SENT(hbs_msg_comment_host, host, 280, 64);
HBS_LAYOUT_TOTAL(hbs_msg_comment_host, 344, HBS_LAYOUT_SENDERS);

#endif
