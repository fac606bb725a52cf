// Texts of every length and content, through every operation that takes one: stored, published, persisted
// and loaded back byte for byte, cut at the field's end, and nothing in them is ever run.
#include <functional>
#include <random>
#include <string>

#include "support/management.h"

namespace texts_test {

// One way in which a text gets into one field of a client.
struct Road {
    const char *name;
    size_t size; // of the field
    std::function<int(const std::string &text)> set;
    std::function<std::string(const hbs_client &client)> get;
    int column; // of the field in the client's line, from 0
};

int set_lease(const char *comment, const char *host) {
    hbs_static_lease_request request{};
    request.family = AF_INET;
    const Mac mac = mac_of(LAPTOP);
    const Ipv4 address = ipv4_of("192.168.0.50");
    std::copy(mac.begin(), mac.end(), request.mac);
    std::copy(address.begin(), address.end(), request.address);
    request.comment = comment;
    request.host = host;
    return hbs_api_set_static_lease(&request);
}

class ManagementTexts : public ManagementTest {
  protected:
    static int set_filter(const char *hbs_filter_request::*field, const std::string &text) {
        hbs_filter_request request = filter(HBS_LIST_BLACK, LAPTOP, {1, 2, 3, 4, 5, 6});
        request.*field = text.c_str();
        return hbs_api_set_mac_filter(&request);
    }

    const std::vector<Road> roads_ = {
        {"trust comment", HBS_COMMENT_SIZE, [](const std::string &t) { return trust(LAPTOP, t); },
         [](const hbs_client &c) { return c.comment; }, 3},
        {"comment", HBS_COMMENT_SIZE,
         [](const std::string &t) { return hbs_api_set_comment_host(client_of(LAPTOP), t.c_str(), "h"); },
         [](const hbs_client &c) { return c.comment; }, 3},
        {"host", HBS_HOST_SIZE,
         [](const std::string &t) { return hbs_api_set_comment_host(client_of(LAPTOP), "c", t.c_str()); },
         [](const hbs_client &c) { return c.host; }, 2},
        {"lease comment", HBS_COMMENT_SIZE, [](const std::string &t) { return set_lease(t.c_str(), "h"); },
         [](const hbs_client &c) { return c.comment; }, 3},
        {"lease host", HBS_HOST_SIZE, [](const std::string &t) { return set_lease("c", t.c_str()); },
         [](const hbs_client &c) { return c.host; }, 2},
        {"filter comment", HBS_COMMENT_SIZE,
         [](const std::string &t) { return set_filter(&hbs_filter_request::comment, t); },
         [](const hbs_client &c) { return c.comment; }, 3},
        {"keyword_list", HBS_LIST_TEXT_SIZE,
         [](const std::string &t) { return set_filter(&hbs_filter_request::keyword_list, t); },
         [](const hbs_client &c) { return c.keyword_list; }, 5},
        {"description", HBS_LIST_TEXT_SIZE,
         [](const std::string &t) { return set_filter(&hbs_filter_request::description, t); },
         [](const hbs_client &c) { return c.description; }, 6},
        {"domain_list", HBS_LIST_TEXT_SIZE,
         [](const std::string &t) { return set_filter(&hbs_filter_request::domain_list, t); },
         [](const hbs_client &c) { return c.domain_list; }, 8},
    };

    // The field of the client's only line.
    static std::string column(int number) {
        const auto lines = lines_of(LAPTOP);
        if (lines.size() != 1)
            return "no single line";
        size_t begin = 0;
        while (number-- > 0)
            begin = lines[0].find(' ', begin) + 1;
        return lines[0].substr(begin, lines[0].find(' ', begin) - begin);
    }

    // The text takes the road and is looked at everywhere; then everything is loaded anew.
    static void expect_kept(const Road &road, const std::string &text) {
        SCOPED_TRACE(std::string(road.name) + ", hex " + hex(text));
        const std::string kept = text.substr(0, road.size - 1);
        ASSERT_EQ(0, trust(LAPTOP)); // remembered, whatever the road
        ASSERT_EQ(0, road.set(text));
        EXPECT_EQ(kept, road.get(*client_of(LAPTOP)));
        ASSERT_TRUE(seen(LAPTOP));
        EXPECT_EQ(kept, road.get(*seen(LAPTOP)));
        EXPECT_EQ(hex(kept), column(road.column));
        reload();
        ASSERT_TRUE(seen(LAPTOP));
        EXPECT_EQ(kept, road.get(*seen(LAPTOP)));
        EXPECT_EQ(HBS_TRUST_SITE, seen(LAPTOP)->trust & HBS_TRUST_SITE);
        EXPECT_EQ(1u, working_clients());
    }
};

const char *const HOSTILE[] = {
    "it's",
    "a \"quoted\" word",
    "back\\slash",
    "\\1\\n\\&",
    "a&b",
    "a/b/c",
    "s/x/y/g",
    "a;b",
    "$(touch /tmp/owned)",
    "`touch /tmp/owned`",
    "';touch /tmp/owned;'",
    "\"; touch /tmp/owned; \"",
    "|touch /tmp/owned",
    "> /tmp/owned",
    "a\nb",
    "\n",
    "\r\n",
    "\t",
    " ",
    "   leading and trailing   ",
    "%s%n%x",
    "%99999d",
    "*",
    "[a-z]*",
    ".*",
    "^$",
    "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80",
    "\xff\xfe",
    "\xc3",
    "02:aa:00:00:00:11 0 61",
    " version 1",
    "~nohost",
    "nohost~",
    "1b",
    "0",
    "-",
    "--",
    "NULL",
    "null",
};

TEST_F(ManagementTexts, OfHostileContent_AreKeptByteForByteAndNothingRuns) {
    for (const Road &road : roads_)
        for (const char *text : HOSTILE)
            expect_kept(road, text);
    EXPECT_FALSE(file_exists("/tmp/owned"));
    EXPECT_TRUE(no_command_ran());
}

TEST_F(ManagementTexts, OfEveryLength_AreCutAtTheFieldsEnd) {
    for (const Road &road : roads_) {
        for (size_t length = 1; length <= road.size + 20; ++length)
            expect_kept(road, std::string(length, 'x'));
        expect_kept(road, std::string(2000, '\''));
    }
    EXPECT_TRUE(no_command_ran());
}

TEST_F(ManagementTexts, OfEveryByte_AreKept) {
    for (const Road &road : roads_)
        for (int byte = 1; byte < 256; ++byte)
            expect_kept(road, std::string("a") + static_cast<char>(byte));
}

TEST_F(ManagementTexts, OfOneByte_AreKeptExceptTheLoneEscapeWhichIsNotRestored) {
    for (int byte = 1; byte < 256; ++byte)
        if (byte != 0x1b)
            expect_kept(roads_[0], std::string(1, static_cast<char>(byte)));
    EXPECT_EQ(0, trust(LAPTOP, "\x1b"));
    EXPECT_STREQ("\x1b", seen(LAPTOP)->comment);
    EXPECT_EQ("1b", column(3));
    reload();
    EXPECT_STREQ("", seen(LAPTOP)->comment);
}

TEST_F(ManagementTexts, OfAnyBytes_AreKept) {
    std::mt19937 random(20260921);
    for (int round = 0; round < 300; ++round) {
        const Road &road = roads_[random() % roads_.size()];
        std::string text(2 + random() % (road.size + 10), '\0');
        for (char &c : text)
            c = static_cast<char>(1 + random() % 255);
        expect_kept(road, text);
    }
    EXPECT_TRUE(no_command_ran());
}

TEST_F(ManagementTexts, ThatArePlaceholders_BecomeEmptyWithTheNextLoad) {
    EXPECT_EQ(0, trust(LAPTOP, "~nocomment~"));
    EXPECT_STREQ("~nocomment~", seen(LAPTOP)->comment);
    reload();
    EXPECT_STREQ("", seen(LAPTOP)->comment);
    EXPECT_EQ(0, trust(LAPTOP, "~nohost~"));
    reload();
    EXPECT_STREQ("~nohost~", seen(LAPTOP)->comment) << "another field's word";
}

TEST_F(ManagementTexts, AllFieldsAtTheirLongest_LoadBackWhole) {
    ASSERT_EQ(0, trust(LAPTOP));
    for (const Road &road : roads_)
        ASSERT_EQ(0, road.set(std::string(road.size - 1, '\xff')));
    const std::string longest(255, '\xff'); // the texts of a list replace each other: all in one request
    hbs_filter_request request = filter(HBS_LIST_BLACK, LAPTOP, {1, 2, 3, 4, 5, 6});
    request.keyword_list = request.description = request.domain_list = longest.c_str();
    ASSERT_EQ(0, hbs_api_set_mac_filter(&request));
    ASSERT_EQ(0, hbs_api_set_comment_host(client_of(LAPTOP), std::string(255, 'c').c_str(),
                                          std::string(63, 'h').c_str()));
    EXPECT_GT(lines_of(LAPTOP).at(0).size(), 2000u);
    reload();
    EXPECT_EQ(std::string(63, 'h'), seen(LAPTOP)->host);
    EXPECT_EQ(std::string(255, 'c'), seen(LAPTOP)->comment);
    EXPECT_EQ(longest, seen(LAPTOP)->keyword_list);
    EXPECT_EQ(longest, seen(LAPTOP)->description);
    EXPECT_EQ(longest, seen(LAPTOP)->domain_list);
}

} // namespace texts_test
