// What users call a device.
#include <cstring>
#include <string>

#include "support/management.h"

namespace comment_test {

using ManagementComment = ManagementTest;

constexpr const char *ADDRESS = "192.168.0.11";

TEST_F(ManagementComment, SetsBothTextsAndRemembersTheClient) {
    hbs_client *client = published_client(LAPTOP, ADDRESS, HBS_FLAG_DYNIP4, 1);
    EXPECT_EQ(0, hbs_api_set_comment_host(client, "in the den", "den-tv"));
    EXPECT_STREQ("in the den", seen(LAPTOP)->comment);
    EXPECT_STREQ("den-tv", seen(LAPTOP)->host);
    EXPECT_EQ(HBS_TRUST_USER, seen(LAPTOP)->trust);
    const Persisted expected{
        .mac = LAPTOP, .nwidx = 1, .host = "den-tv", .comment = "in the den", .trust = HBS_TRUST_USER};
    EXPECT_EQ(" version 1\n" + expected.line() + "\n", client_file());
}

TEST_F(ManagementComment, WithOneTextEmpty_StillRemembersAndEmptiesThatText) {
    hbs_client *client = published_client(LAPTOP, ADDRESS, HBS_FLAG_DYNIP4);
    EXPECT_EQ(0, hbs_api_set_comment_host(client, "comment", "host"));
    EXPECT_EQ(0, hbs_api_set_comment_host(client, "", "host"));
    EXPECT_STREQ("", client->comment);
    EXPECT_EQ(HBS_TRUST_USER, client->trust);
    EXPECT_EQ(0, hbs_api_set_comment_host(client, "comment", ""));
    EXPECT_STREQ("", client->host);
    EXPECT_EQ(HBS_TRUST_USER, client->trust);
}

TEST_F(ManagementComment, WithBothTextsEmpty_ForgetsTheUsersBitOnly) {
    hbs_client *client = published_client(LAPTOP, ADDRESS, HBS_FLAG_DYNIP4);
    client->trust = HBS_TRUST_SITE;
    EXPECT_EQ(0, hbs_api_set_comment_host(client, "comment", "host"));
    EXPECT_EQ(HBS_TRUST_SITE | HBS_TRUST_USER, client->trust);
    EXPECT_EQ(0, hbs_api_set_comment_host(client, "", ""));
    EXPECT_EQ(HBS_TRUST_SITE, client->trust);
    EXPECT_STREQ("", seen(LAPTOP)->comment);
    EXPECT_STREQ("", seen(LAPTOP)->host);
    const std::string line = Persisted{.mac = LAPTOP, .trust = HBS_TRUST_SITE}.line();
    EXPECT_EQ(std::vector<std::string>{line}, lines_of(LAPTOP));
}

TEST_F(ManagementComment, WithoutAClient_IsRefused) {
    EXPECT_EQ(-1, hbs_api_set_comment_host(nullptr, "comment", "host"));
    EXPECT_EQ(" version 1\n", client_file());
}

// --- route mode

TEST_F(ManagementComment, ByAddress_IsForTheClientThatHasIt) {
    (void)published_client(LAPTOP, "192.168.0.11", HBS_FLAG_DYNIP4);
    EXPECT_TRUE(hbs_handle_comment_host(AF_INET, ipv4_of("192.168.0.11").data(), "mine", "laptop"));
    EXPECT_STREQ("mine", seen(LAPTOP)->comment);
    EXPECT_STREQ("laptop", seen(LAPTOP)->host);
    EXPECT_FALSE(hbs_handle_comment_host(AF_INET, ipv4_of("192.168.0.12").data(), "other", "other"));
    EXPECT_FALSE(hbs_handle_comment_host(AF_INET6, ipv6_of("fd00:2::12").data(), "other", "other"));
    EXPECT_STREQ("mine", seen(LAPTOP)->comment);
}

} // namespace comment_test
