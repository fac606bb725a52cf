// Why what was typed cannot be meant, on looks that the test makes up; and what such a look is made of.
#include <cstring>
#include <gtest/gtest.h>

#include "tools/client_key.h"
#include "tools/list_texts.h"
#include "tools/objections.h"

namespace objections_test {

const std::string laptop = "02:aa:00:00:00:01", phone = "02:aa:00:00:00:02", fresh = "02:aa:00:00:00:09";

mac_bytes mac(const std::string &text) {
    return *parse_mac(text);
}

ipv4_bytes ipv4(const char *text) {
    return parse_ip(text)->ipv4;
}

hbs_client client(const std::string &mac_text, const char *address, uint8_t network, uint32_t flags) {
    hbs_client one = {};
    memcpy(one.mac, mac(mac_text).data(), sizeof one.mac);
    memcpy(one.ipv4, ipv4(address).data(), sizeof one.ipv4);
    one.nwidx = network;
    one.flags = flags;
    return one;
}

// Two networks; a laptop with a fixed address in the first, a phone in the second, the laptop with a rule.
look house() {
    look now;
    now.networks = {{0, ipv4("192.168.0.1"), ipv4("255.255.255.0")},
                    {1, ipv4("192.168.1.1"), ipv4("255.255.255.128")}};
    now.db.clients = {client(laptop, "192.168.0.11", 0, HBS_FLAG_STIP4),
                      client(phone, "192.168.1.12", 1, HBS_FLAG_DYNIP4)};
    now.db.clients[0].trust = HBS_TRUST_SITE;
    now.files.leases = {{sighting::static_lease, laptop, "192.168.0.11", "file"},
                        {sighting::static_lease, fresh, "192.168.0.99", "file"}};
    now.files.rules = {{HBS_LIST_WHITE, laptop, {0x7f, 1, 2, 0, 0, 0}}};
    now.db.rules = {{0, 0, 2, {200, 4}, {2, 0xaa, 0, 0, 0, 1}, HBS_LIST_WHITE, 0, {0x7f, 1, 2, 0, 0, 0, 0}}};
    return now;
}

struct lease_row {
    const char *name, *mac, *address;
    uint16_t network;
    const char *reason; // null: it can be meant
};

const lease_row lease_rows[] = {
    {"Free", "02:aa:00:00:00:08", "192.168.0.60", 0, nullptr},
    {"FreeIn8", "02:aa:00:00:00:08", "192.168.0.60", 8, nullptr},
    {"Again", "02:aa:00:00:00:01", "192.168.0.11", 0, nullptr},
    {"Own", "02:aa:00:00:00:08", "192.168.0.1", 0, "192.168.0.1 is the gateway's own address"},
    {"OwnElsewhere", "02:aa:00:00:00:08", "192.168.1.1", 0, "192.168.1.1 is the gateway's own address"},
    {"First", "02:aa:00:00:00:08", "192.168.0.0", 0, "192.168.0.0 is the network's own address"},
    {"Last", "02:aa:00:00:00:08", "192.168.0.255", 0, "192.168.0.255 is the network's broadcast address"},
    {"Elsewhere", "02:aa:00:00:00:08", "192.168.1.60", 0, "192.168.1.60 belongs to network 1"},
    {"Nowhere", "02:aa:00:00:00:08", "192.168.1.200", 0,
     "192.168.1.200 is not in 192.168.0.0/24, the network that has fixed addresses"},
    {"Loopback", "02:aa:00:00:00:08", "127.0.0.1", 0, "127.0.0.1 is no address that a host can have"},
    {"IPv6", "02:aa:00:00:00:08", "fd00::1", 0, "the daemon keeps fixed addresses for IPv4 only"},
    {"Network1", "02:aa:00:00:00:08", "192.168.0.60", 1,
     "fixed addresses are for the networks 0 and 8 only, not for network 1"},
    {"Network256", "02:aa:00:00:00:08", "192.168.0.60", 256,
     "fixed addresses are for the networks 0 and 8 only, not for network 256"},
    {"DeviceElsewhere", "02:aa:00:00:00:02", "192.168.0.60", 0,
     "02:aa:00:00:00:02 is in network 1, and fixed addresses are for the networks 0 and 8 only"},
    {"Group", "03:aa:00:00:00:02", "192.168.0.60", 0,
     "03:aa:00:00:00:02 is the address of a group, not of a device"},
    {"Held", "02:aa:00:00:00:08", "192.168.0.11", 0, "192.168.0.11 is held by 02:aa:00:00:00:01"},
    {"Reserved", "02:aa:00:00:00:08", "192.168.0.99", 0,
     "192.168.0.99 is the fixed address of 02:aa:00:00:00:09"},
};

TEST(Objections, ToStaticLeases) {
    for (const lease_row &row : lease_rows) {
        static_lease lease;
        lease.mac = mac(row.mac);
        lease.address = *parse_ip(row.address);
        lease.network = row.network;
        EXPECT_EQ(to_static_lease(house(), lease).value_or(""), row.reason == nullptr ? "" : row.reason)
            << row.name;
    }
}

struct subnet_row {
    const char *address, *reason; // null: it can be meant
};

// A network may have several subnets, networks 0 and 8 are one to the daemon, and others may lie around them.
TEST(Objections, ToAddressesNameNoSubnetThatAnotherOneMakesUpFor) {
    const subnet_row rows[] = {
        {"192.168.0.60", nullptr},
        {"10.0.0.60", nullptr},
        {"172.16.0.60", nullptr},
        {"10.0.0.1", "10.0.0.1 is the gateway's own address"},
        {"10.0.0.255", "10.0.0.255 is the network's broadcast address"},
        {"192.168.1.60", "192.168.1.60 belongs to network 1"},
        {"192.168.2.60", "192.168.2.60 belongs to network 2"},
        {"192.168.16.60", "192.168.16.60 belongs to network 16"},
        {"10.9.0.60",
         "10.9.0.60 is not in 192.168.0.0/24 or 10.0.0.0/24 or 172.16.0.0/24, the networks that have "
         "fixed addresses"}};
    look now = house();
    const ipv4_bytes mask = ipv4("255.255.255.0");
    for (const auto &[number, address] :
         {std::pair(0u, "10.0.0.1"), {8u, "172.16.0.1"}, {2u, "192.168.2.1"}, {16u, "192.168.16.1"}})
        now.networks.push_back({number, ipv4(address), mask});
    for (const subnet_row &row : rows)
        EXPECT_EQ(to_fixed_address(now, mac(fresh), *parse_ip(row.address)).value_or(""),
                  row.reason == nullptr ? "" : row.reason);
    now.networks.push_back({3, ipv4("10.8.0.1"), ipv4("255.0.0.0")});
    EXPECT_EQ(to_fixed_address(now, mac(fresh), *parse_ip("10.0.0.60")), std::nullopt);
}

TEST(Objections, ToAddressesOfNoNetworkNeedToKnowTheNetworks) {
    look now = house();
    now.networks.clear();
    EXPECT_EQ(to_fixed_address(now, mac(fresh), *parse_ip("10.0.0.1")), std::nullopt);
}

TEST(Objections, ToClearingLeases) {
    look now = house();
    EXPECT_EQ(to_clearing_lease(now, *parse_ip("192.168.0.11")), std::nullopt);
    EXPECT_EQ(to_clearing_lease(now, *parse_ip("192.168.1.12")), "192.168.1.12 is nobody's fixed address");
    EXPECT_EQ(to_clearing_lease(now, *parse_ip("192.168.0.12")), "192.168.0.12 is nobody's fixed address");
    EXPECT_EQ(to_clearing_lease(now, *parse_ip("192.168.0.99")),
              "no client has the address 192.168.0.99, and the daemon clears the leases of clients only");
    now.files.leases.push_back({sighting::static_lease, phone, "192.168.0.98", "file"});
    EXPECT_EQ(
        to_clearing_lease(now, *parse_ip("192.168.0.98")),
        "no client has the address 192.168.0.98, and the daemon clears the leases of clients only: " + phone +
            " holds 192.168.1.12; set that as its fixed address, in place of this one, and clear it then");
}

TEST(Objections, ToAnAddressThatTwoHold) {
    look now = house();
    now.db.clients[1].ipv4[2] = 0;
    now.db.clients[1].ipv4[3] = 11; // the laptop's
    const std::string shared =
        "192.168.0.11 is held by " + laptop + " and " + phone + ", and the daemon would take one of them";
    EXPECT_EQ(to_clearing_lease(now, *parse_ip("192.168.0.11")), shared);
    EXPECT_EQ(to_shared(now.db, *parse_ip("192.168.0.11")), shared);
    EXPECT_EQ(to_shared(now.db, *parse_ip("192.168.0.12")), std::nullopt);
    hbs_client &one = now.db.clients[1];
    EXPECT_EQ(ip_text(*address_to_tell(now.db, one)), "192.168.0.11") << "it has no other";
    memcpy(one.ll, parse_ip("fe80::12")->ipv6.data(), sizeof one.ll);
    EXPECT_EQ(ip_text(*address_to_tell(now.db, one)), "fe80::12");
    memcpy(one.ipv6, parse_ip("fd00::12")->ipv6.data(), sizeof one.ipv6);
    EXPECT_EQ(ip_text(*address_to_tell(now.db, one)), "fd00::12");
    memcpy(now.db.clients[0].ipv6, one.ipv6, sizeof one.ipv6);
    EXPECT_EQ(ip_text(*address_to_tell(now.db, one)), "fe80::12");
    EXPECT_EQ(address_to_tell(now.db, hbs_client{}), std::nullopt);
}

TEST(Objections, ToTextsThatAreThereAlready) {
    hbs_client one = {};
    strcpy(one.host, "laptop");
    EXPECT_TRUE(has_texts(one, "", std::nullopt)) << "the device's own name would become the user's";
    EXPECT_FALSE(has_texts(one, "desk", std::nullopt));
    EXPECT_FALSE(has_texts(one, "", "laptop")) << "this name is to stay";
    one.trust = HBS_TRUST_USER;
    EXPECT_TRUE(has_texts(one, "", "laptop"));
    EXPECT_FALSE(has_texts(one, "", "mine"));
}

TEST(ListTexts, AreThoseOfADeviceThatIsOnAList) {
    look now = house();
    hbs_client &one = now.db.clients[1];
    strcpy(one.description, "child");
    one.mac_filter = 5;
    filter_request asked;
    asked.mac = mac(phone);
    put_texts(asked, {}, now);
    EXPECT_EQ(asked.description, "") << "what was left of a list";
    EXPECT_EQ(asked.filter_word, 0u);
    one.trust = HBS_TRUST_BLACK;
    put_texts(asked, {}, now);
    EXPECT_EQ(asked.description, "child");
    one.trust = 0;
    now.files.rules.push_back({HBS_LIST_BLACK, phone, {1, 2, 3}});
    asked = {};
    asked.mac = mac(phone);
    put_texts(asked, {}, now);
    EXPECT_EQ(asked.filter_word, 5u);
}

TEST(ListTexts, GoWithTheFirstRuleOfTheList) {
    look now = house();
    EXPECT_EQ(rule_text(first_rule(now, mac(laptop), HBS_LIST_WHITE).value()), "7f,1,2");
    EXPECT_EQ(first_rule(now, mac(laptop), HBS_LIST_BLACK), std::nullopt);
    EXPECT_EQ(to_adding_rule(now, mac(laptop), HBS_LIST_WHITE), std::nullopt);
    EXPECT_EQ(to_adding_rule(now, mac(phone), HBS_LIST_WHITE), std::nullopt) << "it is on no list";
    now.db.clients[1].trust = HBS_TRUST_WHITE;
    EXPECT_EQ(to_adding_rule(now, mac(phone), HBS_LIST_WHITE),
              phone + " is on the white list without a rule: name the one that it is to have");
}

filter_request request(uint8_t list, const std::string &device, const rule_values &rule, uint32_t instance) {
    filter_request one;
    one.list = list;
    one.mac = mac(device);
    one.rule = rule;
    one.rule_word = instance;
    return one;
}

struct rule_row {
    uint8_t list;
    std::string device;
    rule_values rule;
    uint32_t instance;
    std::string to_setting, to_clearing;
};

TEST(Objections, ToRules) {
    const rule_values known = {0x7f, 1, 2}, other = {5, 6, 7};
    const std::vector<rule_row> rows = {
        {HBS_LIST_WHITE, laptop, known, 4, "", ""},
        {HBS_LIST_WHITE, laptop, known, 0, "", ""},
        {HBS_LIST_WHITE, laptop, other, 4, "", "instance 4 is another rule of that device"},
        {HBS_LIST_WHITE, laptop, other, 0, "",
         laptop + " has no rule 5,6,7 on the white list; it has 7f,1,2"},
        {HBS_LIST_BLACK, laptop, known, 0, "",
         laptop + " has no rule 7f,1,2 on the black list; it has none there"},
        {HBS_LIST_WHITE, phone, known, 4, "instance 4 is a rule of " + laptop + " on the white list",
         "instance 4 is a rule of " + laptop + " on the white list"},
        {HBS_LIST_WHITE, laptop, known, 5, "no rule has the instance 5", "no rule has the instance 5"},
    };
    for (const rule_row &row : rows) {
        const filter_request one = request(row.list, row.device, row.rule, row.instance);
        EXPECT_EQ(to_instance(house(), one).value_or(""), row.to_setting);
        EXPECT_EQ(to_clearing_rule(house(), one).value_or(""), row.to_clearing);
    }
    EXPECT_EQ(to_rule({}), "0,0,0 is no rule");
    EXPECT_EQ(to_rule(known), std::nullopt);
}

TEST(Objections, ToTakingOffAListWithoutRulesNeedNone) {
    look now = house();
    now.db.clients[1].trust = HBS_TRUST_BLACK;
    EXPECT_EQ(to_clearing_rule(now, request(HBS_LIST_BLACK, phone, {}, 0)), std::nullopt);
}

TEST(Objections, ToMovingRules) {
    filter_request one = request(HBS_LIST_WHITE, laptop, {0x7f, 1, 2}, 0);
    one.new_mac = mac(phone);
    EXPECT_EQ(to_moving_rule(house(), one, true), std::nullopt);
    EXPECT_EQ(to_moving_rule(house(), one, false),
              "which rule is to be moved? Name it with --rule: " + laptop + ", it has 7f,1,2");
    one.new_mac = mac("ff:ff:ff:ff:ff:ff");
    EXPECT_EQ(to_moving_rule(house(), one, true),
              "ff:ff:ff:ff:ff:ff is the address of a group, not of a device");
    one.new_mac = one.mac;
    EXPECT_EQ(to_moving_rule(house(), one, true), "both are the same device, which would lose the rule");
}

TEST(Objections, ToNumbersAndLinkLocalAddresses) {
    EXPECT_EQ(to_number("SSID", 1, 1, 256), std::nullopt);
    EXPECT_EQ(to_number("SSID", 256, 1, 256), std::nullopt);
    EXPECT_EQ(to_number("SSID", 257, 1, 256), "there is no SSID 257: they go from 1 to 256");
    EXPECT_EQ(to_link_local(parse_ip("fe80::1")->ipv6), std::nullopt);
    EXPECT_EQ(to_link_local(parse_ip("febf::1")->ipv6), std::nullopt);
    EXPECT_EQ(to_link_local(parse_ip("fec0::1")->ipv6), "fec0::1 is no link-local address (fe80::/10)");
    EXPECT_EQ(to_link_local(parse_ip("::")->ipv6), ":: is no link-local address (fe80::/10)");
}

TEST(Objections, ToAddressesThatNoServerGives) {
    for (const char *text : {"2001:db8::1", "fd00:2::1", "64:ff9b::1"})
        EXPECT_EQ(to_leased_address(parse_ip(text)->ipv6), std::nullopt) << text;
    for (const char *text : {"::", "::1", "ff02::1", "fe80::1", "::ffff:192.168.0.1"})
        EXPECT_EQ(to_leased_address(parse_ip(text)->ipv6),
                  std::string(text) + " is no address that a server gives");
}

TEST(Changes, AreWhatTwoLooksDifferIn) {
    const std::vector<fact> before = {{"a", "yes"}, {"b", "1"}, {"c", ""}, {"d", "same"}};
    const std::vector<fact> after = {{"b", "2"}, {"c", "new"}, {"d", "same"}, {"e", "yes"}};
    std::vector<std::string> texts;
    for (const change &one : changes_between(before, after))
        texts.push_back(change_text(one));
    EXPECT_EQ(texts, (std::vector<std::string>{"a: removed", "b: changed from '1' to '2'", "c: set to 'new'",
                                               "e: set"}));
    EXPECT_EQ(change_text({"x", "old", ""}), "x: removed (was 'old')");
}

TEST(RuleFile, IsReadAsTheDaemonWritesIt) {
    const auto rules =
        parse_rule_file("02:aa:00:00:00:01;7f 1 2 3 4 5;a 2 3;rubbish;1 2;\nno mac;1 2 3;\n", 2);
    ASSERT_EQ(rules.size(), 2u);
    EXPECT_EQ(whole_rule_text(rules[0].rule), "7f,1,2,3,4,5");
    EXPECT_EQ(whole_rule_text(rules[1].rule), "a,2,3,0,0,0");
    EXPECT_EQ(rules[1].list, 2);
}

TEST(LanNetworks, AreNumberedByTheirInterface) {
    EXPECT_EQ(network_of_interface("l2sd0.2"), 0u);
    EXPECT_EQ(network_of_interface("l2sd0.9"), 7u);
    for (const char *name : {"l2sd0", "l2sd0.", "l2sd0.1", "l2sd0.2x", "eth0"})
        EXPECT_EQ(network_of_interface(name), std::nullopt) << name;
    EXPECT_EQ(network_text({1, ipv4("10.1.2.3"), ipv4("255.255.252.0")}), "10.1.0.0/22");
}

TEST(Suggestions, AreNearAndFew) {
    const std::vector<std::string> known = {"laptop", "lap-top", "tablet", "tv", "LAPTOP2"};
    EXPECT_EQ(nearest("labtop", known), (std::vector<std::string>{"laptop", "LAPTOP2", "lap-top"}));
    EXPECT_EQ(nearest("tb", known), std::vector<std::string>{"tv"});
    EXPECT_EQ(nearest("x", known), std::vector<std::string>{});
    EXPECT_EQ(suggestion("labtop", {"laptop", "lap-top"}), ": did you mean 'laptop' or 'lap-top'?");
    EXPECT_EQ(suggestion("printer", known), "");
}

// --- who is meant ---

std::string who_is_meant(const database &db, const std::string &key) {
    try {
        return key_of(one_client(db, key));
    } catch (const run_error &error) {
        return error.what();
    }
}

TEST(OneClient, IsNotGuessedOfSeveralThatAreNamedInstead) {
    look now = house();
    for (hbs_client &each : now.db.clients)
        strcpy(each.host, "dup");
    EXPECT_EQ(who_is_meant(now.db, "dup"),
              "'dup' is more than one client: " + laptop + " (192.168.0.11), " + phone + " (192.168.1.12)");
    memset(now.db.clients[1].mac, 0, sizeof now.db.clients[1].mac);
    EXPECT_EQ(who_is_meant(now.db, "dup"),
              "'dup' is more than one client: " + laptop + " (192.168.0.11), 192.168.1.12");
    EXPECT_EQ(who_is_meant(now.db, laptop), laptop);
    EXPECT_EQ(who_is_meant(now.db, "192.168.1.12"), "192.168.1.12");
}

} // namespace objections_test
