// White and black list: what setting and clearing an entry does to the client, the rule file and the rule
// index.
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "base/paths.h"
#include "support/management.h"

namespace device_lists_test {

class ManagementFilter : public ManagementTest {
  protected:
    static std::string white() { return read_file(HBS_WHITE_RULES); }
    static std::string black() { return read_file(HBS_BLACK_RULES); }

    static int set(uint8_t type, const std::string &mac, std::array<uint32_t, 6> values) {
        const hbs_filter_request request = filter(type, mac, values);
        return hbs_api_set_mac_filter(&request);
    }
    static int clear(uint8_t type, const std::string &mac, std::array<uint32_t, 6> values) {
        const hbs_filter_request request = filter(type, mac, values);
        return hbs_api_clr_mac_filter(&request);
    }

    static hbs_filter_request filter_with_texts() {
        hbs_filter_request request = filter(HBS_LIST_BLACK, LAPTOP, {1, 2, 3, 4, 5, 6});
        request.comment = "com";
        request.description = "des";
        request.keyword_list = "key";
        request.domain_list = "dom";
        return request;
    }

    static std::vector<uint32_t> parameters(const hbs_rule_entry &entry) { return {entry.p, entry.p + 7}; }
};

using ManagementFilterSet = ManagementFilter;
using ManagementFilterClear = ManagementFilter;
using ManagementFilterModify = ManagementFilter;

// One rule of a list, set and cleared without touching who is on the list.
class OneRule : public ManagementFilter {
  protected:
    void SetUp() override {
        ManagementFilter::SetUp();
        EXPECT_EQ(0, set(HBS_LIST_BLACK, LAPTOP, {7, 7, 7, 7, 7, 7}));
        trust_ = seen(LAPTOP)->trust;
        lines_ = lines_of(LAPTOP);
    }
    void expect_same_client() {
        EXPECT_EQ(trust_, seen(LAPTOP)->trust);
        EXPECT_EQ(lines_, lines_of(LAPTOP));
    }
    static bool set_rule(uint8_t type, const std::string &mac, uint32_t instance = 0) {
        hbs_filter_request request = filter(type, mac, {1, 2, 3, 4, 5, 6});
        request.rule_word = instance;
        return hbs_api_set_rule(&request);
    }
    static bool clear_rule(uint8_t type, const std::string &mac) {
        const hbs_filter_request request = filter(type, mac, {1, 2, 3});
        return hbs_api_clr_rule(&request);
    }

    uint32_t trust_ = 0;
    std::vector<std::string> lines_;
};

const struct {
    uint8_t type;
    uint32_t bit;
    const char *path;
    const char *message;
} LISTS[] = {
    {HBS_LIST_WHITE, HBS_TRUST_WHITE, HBS_WHITE_RULES, "HOSTBASE: hbs_api_set_whitelist"},
    {HBS_LIST_BLACK, HBS_TRUST_BLACK, HBS_BLACK_RULES, "HOSTBASE: hbs_api_set_blacklist"},
};

TEST_F(ManagementFilterSet, OfAnUnknownMac_AddsTheClientTheRuleAndTheIndexEntry) {
    for (const auto &list : LISTS) {
        EXPECT_EQ(0, set(list.type, LAPTOP, {0xabc, 2, 3, 4, 5, 6}));
        EXPECT_TRUE(logged(list.message));
        ASSERT_TRUE(seen(LAPTOP));
        EXPECT_EQ(list.bit, seen(LAPTOP)->trust);
        EXPECT_EQ(0, seen(LAPTOP)->nwidx);
        EXPECT_EQ("02:aa:00:00:00:11;abc 2 3 4 5 6;\n", read_file(list.path));
        ASSERT_EQ(1u, rules().size());
        EXPECT_EQ(list.type, rules()[0].type);
        EXPECT_EQ(mac_of(LAPTOP), std::to_array(rules()[0].mac));
        EXPECT_EQ((std::vector<uint32_t>{0xabc, 2, 3, seen(LAPTOP)->dbpos, 4, 5, 6}), parameters(rules()[0]));
        EXPECT_EQ(std::vector<std::string>{(Persisted{.mac = LAPTOP, .trust = list.bit}.line())},
                  lines_of(LAPTOP));
        EXPECT_EQ(std::vector<std::string>{"200 1"}, if_keys());
        EXPECT_EQ(0, hbs_set_route_mode(0));
        write_file(HBS_CLIENT_FILE, " version 1\n");
    }
}

TEST_F(ManagementFilterSet, TakesEachTextThatIsGivenAndNamesIt) {
    hbs_filter_request request = filter_with_texts();
    request.filter_word = 0xfffffffe;
    EXPECT_EQ(0, hbs_api_set_mac_filter(&request));
    const Persisted expected{.mac = LAPTOP,
                             .comment = "com",
                             .trust = HBS_TRUST_BLACK,
                             .keyword_list = "key",
                             .description = "des",
                             .mac_filter = -2,
                             .domain_list = "dom"};
    EXPECT_EQ(std::vector<std::string>{expected.line()}, lines_of(LAPTOP));
    EXPECT_EQ(-2, seen(LAPTOP)->mac_filter);
    EXPECT_STREQ("dom", seen(LAPTOP)->domain_list);
    for (const char *part :
         {"comment is com", "description is des", "keyword_list is key", "domain_list is dom"})
        EXPECT_TRUE(logged(std::string("HOSTBASE: hbs_api_set_mac_filter : ") + part)) << part;
}

// They come with every request, so that an empty one empties what is stored. A comment may be left out.
TEST_F(ManagementFilterSet, EmptyTextsReplaceAndAreNamed_AnEmptyCommentIsNone) {
    hbs_filter_request request = filter_with_texts();
    request.filter_word = 9;
    EXPECT_EQ(0, hbs_api_set_mac_filter(&request));

    clear_log();
    request.comment = request.description = request.keyword_list = request.domain_list = "";
    request.filter_word = 3;
    EXPECT_EQ(0, hbs_api_set_mac_filter(&request));
    std::vector<std::string> named;
    for (const std::string &line : log_lines())
        if (line.find("hbs_api_set_mac_filter :") != std::string::npos)
            named.push_back(line);
    EXPECT_EQ((std::vector<std::string>{"HOSTBASE: hbs_api_set_mac_filter : description is ",
                                        "HOSTBASE: hbs_api_set_mac_filter : keyword_list is ",
                                        "HOSTBASE: hbs_api_set_mac_filter : domain_list is "}),
              named);
    EXPECT_STREQ("com", seen(LAPTOP)->comment);
    EXPECT_STREQ("", seen(LAPTOP)->description);
    EXPECT_STREQ("", seen(LAPTOP)->keyword_list);
    EXPECT_STREQ("", seen(LAPTOP)->domain_list);
    EXPECT_EQ(3, seen(LAPTOP)->mac_filter) << "the word is stored whatever it is";
}

TEST_F(ManagementFilterSet, OfAnotherList_IsRefusedAfterTheTexts) {
    for (const int type : {0, 3, 255}) {
        hbs_filter_request request = filter(static_cast<uint8_t>(type), LAPTOP, {1, 2, 3, 4, 5, 6});
        const std::string comment = std::to_string(type);
        request.comment = comment.c_str();
        request.filter_word = static_cast<uint32_t>(type);
        EXPECT_EQ(-1, hbs_api_set_mac_filter(&request)) << type;
        ASSERT_NE(nullptr, client_of(LAPTOP));
        EXPECT_EQ(comment, client_of(LAPTOP)->comment);
        EXPECT_EQ(type, client_of(LAPTOP)->mac_filter);
        EXPECT_EQ(0u, client_of(LAPTOP)->trust);
    }
    EXPECT_FALSE(seen(LAPTOP)) << "not published";
    EXPECT_EQ(" version 1\n", client_file());
    EXPECT_FALSE(file_exists(HBS_WHITE_RULES));
    EXPECT_FALSE(file_exists(HBS_BLACK_RULES));
    EXPECT_TRUE(rules().empty());
}

TEST_F(ManagementFilterSet, OfTheSameRule_ReplacesItOnFileAndKeepsTheEntry) {
    EXPECT_EQ(0, set(HBS_LIST_WHITE, LAPTOP, {1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(0, set(HBS_LIST_WHITE, LAPTOP, {1, 2, 3, 7, 8, 9}));
    EXPECT_EQ("02:aa:00:00:00:11;1 2 3 7 8 9;\n", white());
    ASSERT_EQ(1u, rules().size());
    EXPECT_EQ(4u, rules()[0].p[4]);
}

TEST_F(ManagementFilterSet, WithTheLargestValues_WritesTheKeyInHexAndTheRestSigned) {
    EXPECT_EQ(0, set(HBS_LIST_BLACK, LAPTOP, {0xffffffff, 65535, 65535, 0xffffffff, 0x7fffffff, 0x80000000}));
    EXPECT_EQ("02:aa:00:00:00:11;ffffffff 65535 65535 -1 2147483647 -2147483648;\n", black());
    reload();
    ASSERT_EQ(1u, rules().size());
    EXPECT_EQ((std::vector<uint32_t>{0xffffffff, 65535, 65535, seen(LAPTOP)->dbpos, 0xffffffff, 0x7fffffff,
                                     0x80000000}),
              parameters(rules()[0]));
}

TEST_F(ManagementFilterSet, OfMoreRulesThanTheIndexHolds_KeepsThemOnFileAndSaysSo) {
    for (uint32_t rule = 1; rule <= 25; ++rule)
        for (const char *mac : {LAPTOP, TABLET, "02:aa:00:00:00:13", "02:aa:00:00:00:14"})
            EXPECT_EQ(0, set(HBS_LIST_WHITE, mac, {rule, 1, 1, 0, 0, 0}));
    EXPECT_EQ(size_t{HBS_MAX_RULE_ENTRIES}, rules().size());
    EXPECT_EQ(
        100u - HBS_MAX_RULE_ENTRIES,
        logged_count("HOSTBASE: hbs_file_update_rule_idx : failed to allocate memory, current count 96l"));
    EXPECT_EQ(4u, read_lines(HBS_WHITE_RULES).size());
    const std::string content = white();
    EXPECT_EQ(4 + 100, std::count(content.begin(), content.end(), ';'));
}

TEST_F(ManagementFilterClear, OfTheLastRule_TakesTheClientOffTheWhiteList) {
    EXPECT_EQ(0, trust(LAPTOP, "comment"));
    hbs_filter_request request = filter(HBS_LIST_WHITE, LAPTOP, {1, 2, 3, 4, 5, 6});
    request.description = "des";
    request.keyword_list = "key";
    request.domain_list = "dom";
    request.filter_word = 9;
    EXPECT_EQ(0, hbs_api_set_mac_filter(&request));
    EXPECT_EQ(0, clear(HBS_LIST_WHITE, LAPTOP, {1, 2, 3}));
    EXPECT_EQ("", white());
    EXPECT_TRUE(rules().empty());
    EXPECT_EQ(HBS_TRUST_SITE, seen(LAPTOP)->trust);
    EXPECT_STREQ("des", seen(LAPTOP)->description) << "the texts belong to the black list";
    EXPECT_STREQ("key", seen(LAPTOP)->keyword_list);
    EXPECT_STREQ("dom", seen(LAPTOP)->domain_list);
    EXPECT_EQ(9, seen(LAPTOP)->mac_filter);
    EXPECT_EQ(1u, lines_of(LAPTOP).size());
}

TEST_F(ManagementFilterClear, OfTheLastRule_TakesTheClientOffTheBlackListAndEmptiesItsTexts) {
    hbs_filter_request request = filter_with_texts();
    request.filter_word = 9;
    EXPECT_EQ(0, hbs_api_set_mac_filter(&request));
    EXPECT_EQ(0, clear(HBS_LIST_BLACK, LAPTOP, {1, 2, 3}));
    EXPECT_EQ(0u, seen(LAPTOP)->trust);
    EXPECT_STREQ("com", seen(LAPTOP)->comment);
    EXPECT_STREQ("", seen(LAPTOP)->description);
    EXPECT_STREQ("", seen(LAPTOP)->keyword_list);
    EXPECT_STREQ("", seen(LAPTOP)->domain_list);
    EXPECT_EQ(0, seen(LAPTOP)->mac_filter);
    EXPECT_TRUE(lines_of(LAPTOP).empty()) << "nothing is set on it any more";
    EXPECT_EQ("", black());
}

TEST_F(ManagementFilterClear, OfOneOfTwoRules_KeepsTheClientOnTheList) {
    for (const auto &list : LISTS) {
        EXPECT_EQ(0, set(list.type, LAPTOP, {1, 2, 3, 4, 5, 6}));
        EXPECT_EQ(0, set(list.type, LAPTOP, {7, 2, 3, 4, 5, 6}));
        EXPECT_EQ(0, clear(list.type, LAPTOP, {1, 2, 3}));
        EXPECT_EQ("02:aa:00:00:00:11;7 2 3 4 5 6;\n", read_file(list.path));
        EXPECT_NE(0u, seen(LAPTOP)->trust & list.bit);
        EXPECT_EQ(1u, rules().size());
        EXPECT_EQ(0, clear(list.type, LAPTOP, {7, 2, 3}));
        EXPECT_EQ(0u, seen(LAPTOP)->trust & list.bit);
    }
}

TEST_F(ManagementFilterClear, LooksAtTheFirstThreeValuesOnly) {
    EXPECT_EQ(0, set(HBS_LIST_WHITE, LAPTOP, {1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(0, clear(HBS_LIST_WHITE, LAPTOP, {1, 2, 4, 4, 5, 6}));
    EXPECT_EQ(1u, rules().size());
    EXPECT_EQ(HBS_TRUST_WHITE, seen(LAPTOP)->trust);
    EXPECT_EQ(0, clear(HBS_LIST_WHITE, LAPTOP, {1, 2, 3, 9, 9, 9}));
    EXPECT_TRUE(rules().empty());
}

TEST_F(ManagementFilterClear, DoesNotTouchTheOtherListOrAnotherClient) {
    EXPECT_EQ(0, set(HBS_LIST_WHITE, LAPTOP, {1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(0, set(HBS_LIST_BLACK, LAPTOP, {1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(0, set(HBS_LIST_WHITE, TABLET, {1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(0, clear(HBS_LIST_WHITE, LAPTOP, {1, 2, 3}));
    EXPECT_EQ("02:aa:00:00:00:12;1 2 3 4 5 6;\n", white());
    EXPECT_EQ("02:aa:00:00:00:11;1 2 3 4 5 6;\n", black());
    EXPECT_EQ(HBS_TRUST_BLACK, seen(LAPTOP)->trust);
    EXPECT_EQ(HBS_TRUST_WHITE, seen(TABLET)->trust);
    ASSERT_EQ(2u, rules().size());
    EXPECT_EQ(1u, rules()[0].key[1]);
    EXPECT_EQ(2u, rules()[1].key[1]);
}

TEST_F(ManagementFilterClear, OfAnUnknownMac_StillClearsTheRuleAndAnswersZero) {
    write_file(HBS_BLACK_RULES, "02:aa:00:00:00:11;1 2 3 4 5 6;\n");
    EXPECT_EQ(0, clear(HBS_LIST_BLACK, LAPTOP, {1, 2, 3}));
    EXPECT_EQ("", black());
    EXPECT_EQ(0u, working_clients());
    EXPECT_EQ(" version 1\n", client_file());
}

TEST_F(ManagementFilterClear, OfAnotherList_IsRefusedAndChangesNothing) {
    EXPECT_EQ(0, set(HBS_LIST_WHITE, LAPTOP, {1, 2, 3, 4, 5, 6}));
    for (const int type : {0, 3, 255})
        EXPECT_EQ(-1, clear(static_cast<uint8_t>(type), LAPTOP, {1, 2, 3})) << type;
    EXPECT_EQ("02:aa:00:00:00:11;1 2 3 4 5 6;\n", white());
    EXPECT_EQ(1u, rules().size());
    EXPECT_EQ(HBS_TRUST_WHITE, seen(LAPTOP)->trust);
}

TEST_F(ManagementFilterModify, SetThenClear_MovesTheRuleToTheOtherMac) {
    EXPECT_EQ(0, set(HBS_LIST_BLACK, LAPTOP, {1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(0, set(HBS_LIST_BLACK, TABLET, {1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(0, clear(HBS_LIST_BLACK, LAPTOP, {1, 2, 3, 4, 5, 6}));
    EXPECT_EQ("02:aa:00:00:00:12;1 2 3 4 5 6;\n", black());
    EXPECT_EQ(0u, seen(LAPTOP)->trust);
    EXPECT_EQ(HBS_TRUST_BLACK, seen(TABLET)->trust);
    ASSERT_EQ(1u, rules().size());
    EXPECT_EQ(mac_of(TABLET), std::to_array(rules()[0].mac));
}

TEST_F(OneRule, OfAKnownDevice_IsAddedToTheFileAndReplacesTheOneOfItsInstanceInTheIndex) {
    const uint32_t instance = rules()[0].key[1];
    EXPECT_TRUE(set_rule(HBS_LIST_BLACK, LAPTOP, instance));
    EXPECT_EQ("02:aa:00:00:00:11;7 7 7 7 7 7;1 2 3 4 5 6;\n", black());
    ASSERT_EQ(1u, rules().size());
    EXPECT_EQ(instance, rules()[0].key[1]);
    EXPECT_EQ((std::vector<uint32_t>{1, 2, 3, seen(LAPTOP)->dbpos, 4, 5, 6}), parameters(rules()[0]));
    expect_same_client();
    EXPECT_TRUE(clear_rule(HBS_LIST_BLACK, LAPTOP));
    EXPECT_EQ("02:aa:00:00:00:11;7 7 7 7 7 7;\n", black());
    EXPECT_TRUE(rules().empty());
    expect_same_client();
}

TEST_F(OneRule, OfATypeThatIsNoList_UsesTheWhiteFile) {
    write_file(HBS_WHITE_RULES, "02:aa:00:00:00:11;1 2 3 4 5 6;\n");
    EXPECT_TRUE(clear_rule(9, LAPTOP));
    EXPECT_EQ("", white());
    EXPECT_TRUE(set_rule(9, LAPTOP, 5));
    EXPECT_EQ("02:aa:00:00:00:11;1 2 3 4 5 6;\n", white());
    EXPECT_EQ("02:aa:00:00:00:11;7 7 7 7 7 7;\n", black());
}

TEST_F(OneRule, OfAnUnknownDevice_IsNotTaken) {
    EXPECT_FALSE(set_rule(HBS_LIST_BLACK, TABLET, 5));
    EXPECT_FALSE(clear_rule(HBS_LIST_BLACK, TABLET));
    EXPECT_EQ("02:aa:00:00:00:11;7 7 7 7 7 7;\n", black());
    EXPECT_EQ(1u, rules().size());
}

TEST_F(OneRule, IsTakenWhateverBecomesOfItsFile) {
    ASSERT_EQ(0, unlink(HBS_BLACK_RULES));
    ASSERT_EQ(0, mkdir(HBS_BLACK_RULES, 0700));
    EXPECT_TRUE(set_rule(HBS_LIST_BLACK, LAPTOP, 5));
    EXPECT_TRUE(clear_rule(HBS_LIST_BLACK, LAPTOP));
}

} // namespace device_lists_test
