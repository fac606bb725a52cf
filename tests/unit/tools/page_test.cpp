// The page: what goes into it cannot get out of its place, and by which names it may be asked for.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "tools/listen_address.h"
#include "tools/page.h"

namespace {

hbs_client named(const char *name) {
    hbs_client client = {};
    snprintf(client.host, sizeof client.host, "%s", name);
    return client;
}

std::string page_of(const char *name, bool live = false) {
    return page_html(json_text(page_json({}, {named(name)}, {}), -1), "0123", live);
}

// What stands in the data element, up to the first thing that could end it.
json data_of(const std::string &page) {
    const std::string begin = "id=\"data\">";
    const size_t from = page.find(begin) + begin.size();
    return json::parse(page.substr(from, page.find('<', from) - from));
}

TEST(Page, ANameCannotEndTheElementThatItStandsIn) {
    for (const char *name :
         {"</script><script>1", "<!--", "]]>", "{{nonce}}", "{{data}}", "a\\\"b", "\x1b\xe2\x80\xae"})
        EXPECT_EQ(data_of(page_of(name))["clients"][0]["name"], name);
    const std::string page = page_of("</script>");
    EXPECT_EQ(page.find("</script>", page.find("id=\"data\">")),
              page.find("</script>\n<script nonce=\"0123\">"));
}

TEST(Page, HasNoPlaceLeftThatWasNotFilled) {
    EXPECT_EQ(page_of("laptop").find("{{"), std::string::npos);
    EXPECT_NE(page_of("laptop").find("data-live=\"no\""), std::string::npos);
    EXPECT_NE(page_of("laptop", true).find("data-live=\"yes\""), std::string::npos);
}

TEST(Page, MayTalkOnlyWhenItIsLive) {
    EXPECT_EQ(page_policy("x", false).find("connect-src"), std::string::npos);
    EXPECT_NE(page_policy("x", true).find("connect-src 'self'"), std::string::npos);
    EXPECT_EQ(page_policy("x", true).find("unsafe"), std::string::npos);
}

TEST(Page, EachHasAWordOfItsOwn) {
    EXPECT_EQ(new_nonce().size(), 32u);
    EXPECT_NE(new_nonce(), new_nonce());
}

TEST(Page, TellsTheNetworks) {
    const json page = page_json({}, {}, {{3, {192, 168, 3, 1}, {255, 255, 255, 0}}});
    EXPECT_EQ(page["networks"][0]["network"], 3);
    EXPECT_EQ(page["networks"][0]["address"], "192.168.3.0/24");
}

TEST(ListenAddress, IsAnAddressAndAPort) {
    const struct {
        const char *text, *url;
    } good[] = {{"127.0.0.1:8080", "http://127.0.0.1:8080/"},
                {"0.0.0.0:80", "http://0.0.0.0:80/"},
                {":0", "http://127.0.0.1:0/"},
                {"[::1]:65535", "http://[::1]:65535/"},
                {"[::1]", "http://[::1]:8080/"},
                {"10.0.0.1", "http://10.0.0.1:8080/"}};
    for (const auto &one : good) {
        const auto address = parse_listen_address(one.text);
        ASSERT_TRUE(address) << one.text;
        EXPECT_EQ(url_of(*address), one.url);
    }
    for (const char *text : {"localhost:80", "127.0.0.1:65536", "127.0.0.1:", "127.0.0.1:-1", "127.0.0.1:8o",
                             "[::1", "::1", "[::1]x"})
        EXPECT_FALSE(parse_listen_address(text)) << text;
}

TEST(TrustedHost, IsAnAddressOrLocalhost) {
    for (const char *line :
         {"localhost", "localhost:8080", "127.0.0.1", "192.168.0.1:80", "[::1]", "[fe80::1]:8080"})
        EXPECT_TRUE(is_trusted_host(line)) << line;
    for (const char *line :
         {"", "evil.example", "evil.example:8080", "127.0.0.1.evil.example", "localhost.evil.example",
          "localhost:8080@evil.example", "localhost:", "[::1", "1", "127.1"})
        EXPECT_FALSE(is_trusted_host(line)) << line;
}

} // namespace
