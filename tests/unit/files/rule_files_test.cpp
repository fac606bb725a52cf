// White and black rule files: load into the rule index, add, replace, clear.
#include <string>

#include "base/paths.h"
#include "files/rule_files.h"
#include "store/rule_index.h"
#include "store/segment.h"
#include "support/events.h"

namespace rule_files_test {

class RuleFiles : public EventTest {
  protected:
    const Mac mac = mac_of("02:aa:00:00:00:11");

    static std::vector<hbs_rule_entry> index_entries() {
        hbs_rule_entry found[HBS_MAX_RULE_ENTRIES];
        size_t count = 0;
        EXPECT_EQ(HOSTBASE_OK, hostbase_get_rule_index(found, HBS_MAX_RULE_ENTRIES, &count));
        return {found, found + count};
    }

    int update(const hbs_rule &rule) {
        return hbs_nv_update_client_white_rules(HBS_WHITE_RULES, mac.data(), &rule);
    }

    bool clear(const hbs_rule &rule) {
        bool left = false;
        EXPECT_EQ(0, hbs_nv_clear_client_rules(HBS_WHITE_RULES, mac.data(), &rule, &left));
        return left;
    }

    static std::string white() { return read_file(HBS_WHITE_RULES); }
};

std::string many_rules(int count) {
    std::string line = "02:aa:00:00:00:11;";
    for (int i = 1; i <= count; ++i)
        line += std::to_string(i) + " 1 1 0 0 0;";
    return line;
}

using RuleFilesLoad = RuleFiles;
using RuleFilesUpdate = RuleFiles;
using RuleFilesClear = RuleFiles;

TEST_F(RuleFilesLoad, WhenMissing_ReusesTheClientFilesMessage) {
    hbs_nv_load_rules();
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_load_clients: NO NV file /nvram/8/client_white_rules.txt"));
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_load_clients: NO NV file /nvram/8/client_black_rules.txt"));
    EXPECT_EQ(-1, hbs_nv_load_client_rules(1, HBS_WHITE_RULES));
}

TEST_F(RuleFilesLoad, TakesRulesOfThreeAndOfSixFieldsAndSkipsOthers) {
    const hbs_client *client = published_client("02:aa:00:00:00:11", "192.168.0.11", HBS_FLAG_DYNIP4);
    write_file(HBS_WHITE_RULES, "02:aa:00:00:00:11;1f 2 3;20 4 5 6 7 8;junk;21 1;\n");
    write_file(HBS_BLACK_RULES, "02:aa:00:00:00:11;a 1 1;\n");
    hbs_nv_load_rules();
    const auto entries = index_entries();
    ASSERT_EQ(3u, entries.size());
    const uint32_t three[7] = {0x1f, 2, 3, client->dbpos, 0, 0, 0};
    const uint32_t six[7] = {0x20, 4, 5, client->dbpos, 6, 7, 8};
    EXPECT_TRUE(std::equal(three, three + 7, entries[0].p));
    EXPECT_TRUE(std::equal(six, six + 7, entries[1].p));
    EXPECT_EQ(1, entries[0].type);
    EXPECT_EQ(2, entries[2].type);
}

TEST_F(RuleFilesLoad, DropsRulesOfAMacWithoutAClient) {
    write_file(HBS_WHITE_RULES, "02:aa:00:00:00:11;1 2 3;\nnot a mac;1 2 3;\n\n;;;\n");
    EXPECT_EQ(0, hbs_nv_load_client_rules(1, HBS_WHITE_RULES));
    EXPECT_TRUE(index_entries().empty());
}

TEST_F(RuleFilesLoad, DoesNotRecogniseALineOverTheLimit) {
    (void)published_client("02:aa:00:00:00:11", "192.168.0.11", HBS_FLAG_DYNIP4);
    const std::string line = "02:aa:00:00:00:11;1 2 3;";
    write_file(HBS_WHITE_RULES, line + std::string(HBS_RULE_LINE_MAX - line.size(), 'x') + "\n");
    EXPECT_EQ(0, hbs_nv_load_client_rules(1, HBS_WHITE_RULES));
    EXPECT_EQ(1u, index_entries().size());
    {
        const hbs_shm_hold hold;
        hbs_rule_index_clear();
    }
    write_file(HBS_WHITE_RULES, line + std::string(HBS_RULE_LINE_MAX - line.size() + 1, 'x') + "\n");
    EXPECT_EQ(0, hbs_nv_load_client_rules(1, HBS_WHITE_RULES));
    EXPECT_EQ(0u, index_entries().size());
}

TEST_F(RuleFilesLoad, SeesEveryRuleOfALine) {
    (void)published_client("02:aa:00:00:00:11", "192.168.0.11", HBS_FLAG_DYNIP4);
    write_file(HBS_WHITE_RULES, many_rules(31) + "\n");
    EXPECT_EQ(0, hbs_nv_load_client_rules(1, HBS_WHITE_RULES));
    EXPECT_EQ(31u, index_entries().size());
}

TEST_F(RuleFilesUpdate, OfANewMac_AppendsALine) {
    EXPECT_EQ(0, update({{0xabc, 1, 2, 3, 4, 5}}));
    EXPECT_EQ("02:aa:00:00:00:11;abc 1 2 3 4 5;\n", white());
    EXPECT_TRUE(logged("HOSTBASE: execute append cmd"));
    const std::string command = "echo '02:aa:00:00:00:11;abc 1 2 3 4 5;' >> /nvram/8/client_white_rules.txt";
    EXPECT_TRUE(logged("HOSTBASE:  : " + command));
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_update_client_white_rules: execute: " + command));
}

TEST_F(RuleFilesUpdate, OfASecondRule_AddsItAtTheEndOfTheLine) {
    write_file(HBS_WHITE_RULES, "02:aa:00:00:00:10;9 9 9 9 9 9;\n02:aa:00:00:00:11;1 2 3 0 0 0;\n");
    EXPECT_EQ(0, update({{2, 2, 3, 4, 5, 6}}));
    EXPECT_EQ("02:aa:00:00:00:10;9 9 9 9 9 9;\n02:aa:00:00:00:11;1 2 3 0 0 0;2 2 3 4 5 6;\n", white());
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_update_client_white_rules: execute: sed -i "
                       "'s/02:aa:00:00:00:11;1 2 3 0 0 0;/02:aa:00:00:00:11;1 2 3 0 0 0;2 2 3 4 5 6;/g' "
                       "/nvram/8/client_white_rules.txt"));
}

TEST_F(RuleFilesUpdate, OfTheSameFirstThreeFields_ReplacesTheRule) {
    write_file(HBS_WHITE_RULES, "02:aa:00:00:00:11;1 2 3;4 5 6 7 8 9;\n");
    EXPECT_EQ(0, update({{1, 2, 3, 7, 7, 7}}));
    EXPECT_EQ("02:aa:00:00:00:11;1 2 3 7 7 7;4 5 6 7 8 9;\n", white());
    EXPECT_EQ(0, update({{1, 2, 3, 7, 7, 7}}));
    EXPECT_EQ("02:aa:00:00:00:11;1 2 3 7 7 7;4 5 6 7 8 9;\n", white());
}

TEST_F(RuleFilesUpdate, DoesNotSeeARuleBeyondTheThirtieth) {
    write_file(HBS_WHITE_RULES, many_rules(31) + "\n");
    EXPECT_EQ(0, update({{0x31, 1, 1, 8, 8, 8}}));
    EXPECT_EQ(many_rules(30) + "31 1 1 8 8 8;\n", white()) << "added, not replaced, and written once";
    EXPECT_EQ(0, update({{0x31, 1, 1, 9, 9, 9}}));
    EXPECT_EQ(many_rules(30) + "31 1 1 9 9 9;\n", white());
    EXPECT_EQ(0, update({{2, 1, 1, 8, 8, 8}}));
    std::string expected = many_rules(30);
    expected.replace(expected.find(";2 1 1 0 0 0;"), 13, ";2 1 1 8 8 8;");
    EXPECT_EQ(expected + "\n", white());
}

TEST_F(RuleFilesUpdate, WritesRulesOnly) {
    write_file(HBS_WHITE_RULES, "02:aa:00:00:00:11;junk;1 2 3;;4 5 6 7;\n");
    EXPECT_EQ(0, update({{2, 2, 3, 4, 5, 6}}));
    EXPECT_EQ("02:aa:00:00:00:11;1 2 3;2 2 3 4 5 6;\n", white());
}

TEST_F(RuleFilesUpdate, LeavesALineOverTheLimitUntouched) {
    const std::string other = "02:aa:00:00:00:10;" + std::string(HBS_RULE_LINE_MAX, '1') + ";\n";
    write_file(HBS_WHITE_RULES, other + "02:aa:00:00:00:11;1 2 3 0 0 0;\n");
    EXPECT_EQ(0, update({{1, 2, 3, 9, 9, 9}}));
    EXPECT_EQ(other + "02:aa:00:00:00:11;1 2 3 9 9 9;\n", white());
}

TEST_F(RuleFilesUpdate, ThatWouldPassTheLimit_IsRefusedAndLosesNothing) {
    const std::string line =
        "02:aa:00:00:00:11;1 2 3 0 0 0 " + std::string(HBS_RULE_LINE_MAX - 40, 'x') + ";\n";
    write_file(HBS_WHITE_RULES, line);
    EXPECT_EQ(-1, update({{0xffffffff, 65535, 65535, 9, 9, 9}}));
    EXPECT_EQ(line, white());
    EXPECT_TRUE(
        logged("HOSTBASE: hbs_nv_update_client_white_rules: no room for another rule of 02:aa:00:00:00:11"));
}

TEST_F(RuleFilesClear, OfOneOfTwo_TakesItOutAndReportsTheRest) {
    write_file(HBS_WHITE_RULES, "02:aa:00:00:00:11;1 2 3;4 5 6 7 8 9;\n");
    EXPECT_TRUE(clear({{1, 2, 3}}));
    EXPECT_EQ("02:aa:00:00:00:11;4 5 6 7 8 9;\n", white());
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_clear_client_rules: execute: sed -i "
                       "'s/02:aa:00:00:00:11;1 2 3;4 5 6 7 8 9;/02:aa:00:00:00:11;4 5 6 7 8 9;/g' "
                       "/nvram/8/client_white_rules.txt"));
}

TEST_F(RuleFilesClear, OfTheLastRule_RemovesTheLine) {
    write_file(HBS_WHITE_RULES, "02:aa:00:00:00:10;1 2 3;\n02:aa:00:00:00:11;1 2 3;\n");
    EXPECT_FALSE(clear({{1, 2, 3}}));
    EXPECT_EQ("02:aa:00:00:00:10;1 2 3;\n", white());
}

TEST_F(RuleFilesClear, OfAnythingMissing_DoesNothing) {
    EXPECT_FALSE(clear({{1, 2, 3}})) << "no file";
    write_file(HBS_WHITE_RULES, "02:aa:00:00:00:10;1 2 3;\n");
    EXPECT_FALSE(clear({{1, 2, 3}})) << "no line";
    write_file(HBS_WHITE_RULES, "02:aa:00:00:00:11;1 2 3;\n");
    EXPECT_TRUE(clear({{1, 2, 4}})) << "no such rule, but another remains";
    EXPECT_EQ("02:aa:00:00:00:11;1 2 3;\n", white());
}

TEST_F(RuleFilesClear, DoesNotSeeARuleBeyondTheThirtieth) {
    write_file(HBS_WHITE_RULES, many_rules(31) + "\n");
    EXPECT_TRUE(clear({{0x31, 1, 1}}));
    EXPECT_EQ(many_rules(31) + "\n", white());
    EXPECT_TRUE(clear({{1, 1, 1}}));
    std::string expected = many_rules(30);
    expected.erase(expected.find(";1 1 1 0 0 0;"), 12);
    EXPECT_EQ(expected + "\n", white());
}

TEST_F(RuleFilesClear, OfTheLastRule_LeavesALineOverTheLimitThatBeginsAlike) {
    const std::string other = "02:aa:00:00:00:11;1 2 3;" + std::string(HBS_RULE_LINE_MAX, '1') + ";\n";
    write_file(HBS_WHITE_RULES, other + "02:aa:00:00:00:11;1 2 3;\n");
    EXPECT_FALSE(clear({{1, 2, 3}}));
    EXPECT_EQ(other, white());
}

TEST_F(RuleFilesUpdate, OfALineWithoutItsLastSemicolon_EndsEveryRule) {
    write_file(HBS_WHITE_RULES, "02:aa:00:00:00:11;1 2 3;4 5 6\n");
    EXPECT_EQ(0, update({{1, 2, 3, 7, 8, 9}}));
    EXPECT_EQ("02:aa:00:00:00:11;1 2 3 7 8 9;4 5 6;\n", white());
    write_file(HBS_WHITE_RULES, "02:aa:00:00:00:11;1 2 3");
    EXPECT_EQ(0, update({{4, 5, 6, 7, 8, 9}}));
    EXPECT_EQ("02:aa:00:00:00:11;1 2 3;4 5 6 7 8 9;", white());
    EXPECT_TRUE(clear({{1, 2, 3}}));
    EXPECT_EQ("02:aa:00:00:00:11;4 5 6 7 8 9;", white());
}

TEST_F(RuleFilesUpdate, OfARuleOfSevenFields_KnowsItByItsFirstThree) {
    write_file(HBS_WHITE_RULES, "02:aa:00:00:00:11;1 2 3 4 5 6 7;4 5 6 7;\n");
    EXPECT_EQ(0, update({{1, 2, 3, 9, 9, 9}}));
    EXPECT_EQ("02:aa:00:00:00:11;1 2 3 9 9 9;\n", white()) << "four fields are no rule";
}

} // namespace rule_files_test
