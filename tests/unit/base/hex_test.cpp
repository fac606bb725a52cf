// Hex text of the persistent lines.
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include "base/hex.h"

namespace hex_test {

std::string decoded(const std::string &hex, const char *before = "", size_t size = 16) {
    char out[64];
    memset(out, '#', sizeof out);
    strcpy(out, before);
    hbs_hex_to_str(hex.c_str(), out, size);
    return out;
}

TEST(StrToHex, WritesTwoLowerCaseDigitsAByte) {
    char out[32];
    memset(out, '#', sizeof out);
    EXPECT_EQ(10u, hbs_str_to_hex("a Z\xff\x01", out, sizeof out));
    EXPECT_STREQ("61205aff01", out);
    for (size_t i = 10; i < sizeof out; ++i)
        EXPECT_EQ(0, out[i]) << i;
}

TEST(StrToHex, OfNothingIsNothing) {
    char out[4] = "zz";
    EXPECT_EQ(0u, hbs_str_to_hex("", out, sizeof out));
    EXPECT_STREQ("", out);
}

TEST(StrToHex, CutsAtAWholeByte) {
    for (const auto &[size, text] :
         {std::pair<size_t, const char *>{6, "6162"}, {5, "6162"}, {4, "61"}, {1, ""}}) {
        char out[8];
        memset(out, '#', sizeof out);
        EXPECT_EQ(strlen(text), hbs_str_to_hex("abc", out, size));
        EXPECT_STREQ(text, out);
        EXPECT_EQ('#', out[size]) << "wrote past the end";
    }
}

TEST(HexToStr, ReadsDigitsOfEitherCase) {
    EXPECT_EQ("Aj\xab", decoded("416aAB"));
}

TEST(HexToStr, IgnoresAnOddLastDigit) {
    EXPECT_EQ("A", decoded("416"));
}

TEST(HexToStr, LeavesTheOutputForALoneEscapeCharacter) {
    EXPECT_EQ("before", decoded("1b", "before"));
}

TEST(HexToStr, RestoresAnEscapeCharacterAmongOthers) {
    EXPECT_EQ("\x1b\x1b", decoded("1b1b", "before"));
    EXPECT_EQ("\x1b", decoded("1B", "before")); // only the lower-case text is the special case
}

TEST(HexToStr, ReadsAPairAsStrtolDoes) {
    EXPECT_EQ("\x04z", decoded("4g7a")); // leading digits count
    EXPECT_EQ("", decoded("gg41"));      // no digit is 0, which ends the text
}

TEST(HexToStr, EndsInsideTheOutputHoweverLongTheHex) {
    std::string hex;
    for (int i = 0; i < 5000; ++i)
        hex += "61";
    char out[9];
    memset(out, '#', sizeof out);
    hbs_hex_to_str(hex.c_str(), out, 8);
    EXPECT_STREQ("aaaaaaa", out);
    EXPECT_EQ('#', out[8]);
}

TEST(HexToStr, TerminatesAnEmptyText) {
    EXPECT_EQ("", decoded("", "before"));
}

TEST(Hex, RestoresEveryByte) {
    for (int byte = 1; byte < 256; ++byte) {
        const char text[3] = {static_cast<char>(byte), 'x', 0};
        char hex[8];
        hbs_str_to_hex(text, hex, sizeof hex);
        EXPECT_EQ(text, decoded(hex)) << byte;
    }
}

} // namespace hex_test
