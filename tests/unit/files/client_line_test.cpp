// One client as one line of the persistence file, and back.
#include <cstring>
#include <string>

#include "base/hex.h"
#include "files/client_line.h"
#include "support/gateway.h"

namespace client_line_test {

std::string hex(const std::string &text) {
    std::string out(2 * text.size() + 1, '\0');
    out.resize(hbs_str_to_hex(text.c_str(), out.data(), out.size()));
    return out;
}

hbs_client sample() {
    hbs_client client{};
    const uint8_t mac[6] = {0x02, 0xaa, 0, 0, 0, 0x11};
    memcpy(client.mac, mac, sizeof mac);
    client.nwidx = 3;
    client.trust = HBS_TRUST_SITE | HBS_TRUST_BLACK;
    client.mac_filter = -7;
    return client;
}

std::string format(const hbs_client &client) {
    char line[HBS_CLIENT_LINE_SIZE];
    hbs_client_line_format(&client, line);
    return line;
}

hbs_client_line parse(std::string &text) {
    hbs_client_line line;
    hbs_client_line_parse(text.data(), &line);
    return line;
}

TEST(ClientLine, WithoutTexts_WritesThePlaceholders) {
    EXPECT_EQ("02:aa:00:00:00:11 3 " + hex("~nohost~") + " " + hex("~nocomment~") + " 00000009 " +
                  hex("~nokeyword_list~") + " " + hex("~nodescription~") + " -7 " + hex("~nodomain_list~"),
              format(sample()));
}

TEST(ClientLine, WithTexts_WritesTheirHexInFieldOrder) {
    hbs_client client = sample();
    strcpy(client.host, "tv set");
    strcpy(client.comment, "it's \"new\"");
    strcpy(client.keyword_list, "k1;k2");
    strcpy(client.description, "a/b&c");
    strcpy(client.domain_list, "x.example");
    EXPECT_EQ("02:aa:00:00:00:11 3 747620736574 " + hex("it's \"new\"") + " 00000009 " + hex("k1;k2") + " " +
                  hex("a/b&c") + " -7 " + hex("x.example"),
              format(client));
}

TEST(ClientLine, WithEveryFieldFull_FitsAndParsesBackWhole) {
    hbs_client client = sample();
    memset(client.host, 'h', sizeof client.host - 1);
    memset(client.comment, 'c', sizeof client.comment - 1);
    memset(client.keyword_list, 'k', sizeof client.keyword_list - 1);
    memset(client.description, 'd', sizeof client.description - 1);
    memset(client.domain_list, 'o', sizeof client.domain_list - 1);
    client.mac_filter = INT32_MIN;
    std::string text = format(client);
    EXPECT_GT(text.size(), 2000u);
    const hbs_client_line line = parse(text);
    ASSERT_EQ(9, line.fields);
    EXPECT_EQ(hex(std::string(255, 'o')), line.domain_list);
    EXPECT_EQ(INT32_MIN, line.mac_filter);
}

TEST(ClientLine, Parse_CountsTheFieldsUpToTheFirstThatIsMissing) {
    const std::string words[] = {"02:aa:00:00:00:11", "3", "61", "62", "0000000f", "63", "64", "-5", "65"};
    std::string text;
    for (int count = 1; count <= 9; ++count) {
        text += words[count - 1] + " ";
        std::string copy = text + "\n";
        EXPECT_EQ(count, parse(copy).fields) << text;
    }
    const hbs_client_line line = parse(text);
    EXPECT_TRUE(line.mac_valid);
    EXPECT_EQ(3, line.nwidx);
    EXPECT_STREQ("61", line.host);
    EXPECT_STREQ("62", line.comment);
    EXPECT_EQ(0xfu, line.trust);
    EXPECT_STREQ("63", line.keyword_list);
    EXPECT_STREQ("64", line.description);
    EXPECT_EQ(-5, line.mac_filter);
    EXPECT_STREQ("65", line.domain_list);
}

TEST(ClientLine, Parse_StopsAtAWordThatIsNoNumber) {
    std::string network = "02:aa:00:00:00:11 x 61 62 0000000f";
    EXPECT_EQ(1, parse(network).fields);
    std::string trust = "02:aa:00:00:00:11 0 61 62 zz 63";
    EXPECT_EQ(4, parse(trust).fields);
    std::string filter = "02:aa:00:00:00:11 0 61 62 0 63 64 none 65";
    EXPECT_EQ(7, parse(filter).fields);
}

TEST(ClientLine, Parse_OfAMacThatDoesNotConvertWhole_IsNotValid) {
    for (const char *text : {"02:aa:00:00:00", "garbage", "02-aa-00-00-00-11", "02:aa:00:00:00:zz"}) {
        std::string copy = text;
        EXPECT_FALSE(parse(copy).mac_valid) << text;
    }
    std::string empty;
    EXPECT_EQ(0, parse(empty).fields);
}

TEST(ClientLine, Parse_OfAMacWordThatIsTooLong_InventsNothing) {
    std::string longer = "02:aa:00:00:00:112 0";
    EXPECT_FALSE(parse(longer).mac_valid);
    std::string upper = "02:AA:00:00:00:11 0";
    EXPECT_TRUE(parse(upper).mac_valid);
}

TEST(ClientLine, Parse_LeavesWhatStandsBehindANumberToTheNextField) {
    std::string text = "02:aa:00:00:00:11 3x61 62 123456789a 63";
    const hbs_client_line line = parse(text);
    EXPECT_EQ(7, line.fields);
    EXPECT_EQ(3, line.nwidx);
    EXPECT_STREQ("x61", line.host);
    EXPECT_EQ(0x12345678u, line.trust) << "eight digits are the whole word";
    EXPECT_STREQ("9a", line.keyword_list);
    EXPECT_STREQ("63", line.description);
}

} // namespace client_line_test
