// Values of the persistent user configuration.
#include <cstring>

#include "base/paths.h"
#include "gateway/userconf.h"
#include "support/gateway.h"

namespace userconf_test {

class Userconf : public GatewayTest {
  protected:
    void put(const std::string &text) { write_file(HBS_USERCONF, text); }

    std::string value_of(const std::string &key, size_t size = 64) {
        char value[80];
        memset(value, '#', sizeof value);
        const int found = hbs_getPersistentUserSettings(key.c_str(), HBS_USERCONF, value, size);
        EXPECT_EQ('#', value[size]) << "wrote past the end";
        return found == 1 ? value : "(none)";
    }

    std::string address_of(const char *key, int instance) {
        char text[16] = "before";
        const int found = hbs_userconf_address(key, instance, text);
        EXPECT_TRUE(found == 1 || std::string(text) == "before");
        return found == 1 ? text : "(none)";
    }
};

TEST_F(Userconf, ValueStandsBetweenFirstEqualsAndFirstSemicolon) {
    put("other=1;\nname=a=b c;d;\n");
    EXPECT_EQ("a=b c", value_of("name"));
}

TEST_F(Userconf, ValueMayBeEmpty) {
    put("name=;\n");
    EXPECT_EQ("", value_of("name"));
}

TEST_F(Userconf, KeyIsAPlainSubstringOfTheFirstLineThatHasIt) {
    put("my.name.long=1;\nname=2;\n");
    EXPECT_EQ("1", value_of("name"));
    EXPECT_EQ("(none)", value_of("n.me"));
}

TEST_F(Userconf, OnlyTheFirstLineWithTheKeyCounts) {
    put("name without a value\nname=2;\n");
    EXPECT_EQ("(none)", value_of("name"));
    put("name;=2;\n");
    EXPECT_EQ("(none)", value_of("name"));
    put("name=2\n");
    EXPECT_EQ("(none)", value_of("name"));
}

TEST_F(Userconf, IsNotFoundInAMissingFile) {
    EXPECT_EQ("(none)", value_of("name"));
}

TEST_F(Userconf, CutsAValueInsideItsBuffer) {
    put("name=0123456789;\n");
    EXPECT_EQ("012", value_of("name", 4));
}

TEST_F(Userconf, ReadsLinesOfUpTo511Characters) {
    const std::string fill(511 - 7, 'x');
    put("name=" + fill + "y;\nname=2;\n");
    char value[600];
    EXPECT_EQ(1, hbs_getPersistentUserSettings("name", HBS_USERCONF, value, sizeof value));
    EXPECT_EQ(fill + "y", value);
}

TEST_F(Userconf, SkipsLongerLinesAndLinesWithNulBytes) {
    put("name=" + std::string(1 << 20, 'x') + ";\n" + std::string("name=\0;\n", 8) + "name=2;\n");
    EXPECT_EQ("2", value_of("name"));
}

TEST_F(Userconf, AddressIsHexadecimalAfterOneCharacter) {
    put("1.3.6.1.4.1.32473.1.20.1.1.2.2.1.5.200=$C0A80001;\n"
        "1.3.6.1.4.1.32473.1.20.1.1.2.2.1.5.207=x0a010203;\n");
    EXPECT_EQ("192.168.0.1", address_of(HBS_USERCONF_LAN_ADDRESS, 200));
    EXPECT_EQ("10.1.2.3", address_of(HBS_USERCONF_LAN_ADDRESS, 207));
    EXPECT_EQ("(none)", address_of(HBS_USERCONF_LAN_ADDRESS, 201));
    EXPECT_EQ("(none)", address_of(HBS_USERCONF_RANGE_11, 200));
}

TEST_F(Userconf, AddressIsNoneWithoutDigits) {
    put("1.3.6.1.4.1.32473.1.20.1.1.2.2.1.5.200=;\n"
        "1.3.6.1.4.1.32473.1.20.1.1.2.2.1.5.201=$;\n"
        "1.3.6.1.4.1.32473.1.20.1.1.2.2.1.5.202=$zz;\n");
    for (int instance : {200, 201, 202})
        EXPECT_EQ("(none)", address_of(HBS_USERCONF_LAN_ADDRESS, instance)) << instance;
}

} // namespace userconf_test
