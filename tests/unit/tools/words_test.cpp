// Text forms of what a record holds, and text that is safe to show.
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "tools/printable.h"
#include "tools/words.h"

namespace words_test {

using texts = std::vector<std::string>;

TEST(Words, OfAdapters) {
    const std::pair<uint8_t, const char *> table[] = {{0, "unknown"}, {1, "ethernet"}, {2, "usb"},
                                                      {3, "moca"},    {4, "unknown"},  {5, "wifi"},
                                                      {6, "unknown"}, {255, "unknown"}};
    for (const auto &[code, word] : table)
        EXPECT_EQ(adapter_word(code), word) << int{code};
    EXPECT_EQ(parse_adapter("moca"), HBS_ADAPTER_MOCA);
    EXPECT_EQ(parse_adapter("Moca"), std::nullopt);
}

TEST(Words, OfFlagsComeInTheOrderOfTheDump) {
    EXPECT_EQ(flag_words(0xFFFFFFFF),
              (texts{"ASSOC", "REACH", "DYNIP4", "STIP4", "USRIP4", "DYNIP6", "STIP6", "USRIP6", "ONLINE"}));
    EXPECT_EQ(flag_words(0x001F0004 | 0xE0000000), texts{})
        << "marks, timers and the unnamed bit have no word";
    EXPECT_EQ(trust_words(0xFFFFFFFF), (texts{"T-SITE", "T-SERV", "WHITE", "BLACK", "USER"}));
}

TEST(Words, OfAbsentThingsAreEmpty) {
    const uint8_t zero[16] = {};
    EXPECT_EQ(mac_text(zero), "");
    EXPECT_EQ(ipv4_text(zero), "");
    EXPECT_EQ(ipv6_text(zero), "");
    EXPECT_EQ(date_text(zero), "");
}

TEST(Words, OfDatesTakeTheYearMostSignificantByteFirst) {
    const uint8_t date[8] = {0x07, 0xEA, 11, 21, 1, 2, 3, 0};
    EXPECT_EQ(date_text(date), "2026-11-21 01:02:03");
    const uint8_t wild[8] = {0xFF, 0xFF, 255, 255, 255, 255, 255, 255};
    EXPECT_EQ(date_text(wild), "65535-255-255 255:255:255");
}

TEST(Words, AFieldEndsAtItsNulOrItsEnd) {
    char field[4] = {'a', 'b', '\0', 'c'};
    EXPECT_EQ(field_text(field), "ab");
    memset(field, 'x', sizeof field);
    EXPECT_EQ(field_text(field), "xxxx");
    EXPECT_EQ(identity_text(field), "xxxx");
    memcpy(field, "null", sizeof field);
    EXPECT_EQ(identity_text(field), "") << "what the daemon writes where nothing is known";
    EXPECT_EQ(field_text(field), "null") << "a host may be called so";
}

TEST(Words, AMacIsSixBytesInHexadecimal) {
    const mac_bytes expected = {0x02, 0xaa, 0, 0, 0, 0x11};
    for (const char *text : {"02:aa:00:00:00:11", "02:AA:00:00:00:11", "2:aa:0:0:0:11", "02-aa-00-00-00-11"})
        EXPECT_EQ(parse_mac(text), expected) << text;
    for (const char *text :
         {"", "02:aa:00:00:00", "02:aa:00:00:00:11:22", "02:aa:00:00:00:1g", "02aa00000011",
          "002:aa:00:00:00:11", "02:aa:00:00:00:11 ", " 02:aa:00:00:00:11", "::::::"})
        EXPECT_EQ(parse_mac(text), std::nullopt) << text;
}

TEST(Words, AnAddressIsOfOneFamily) {
    EXPECT_EQ(parse_ip("192.168.0.1")->family, HBS_FAMILY_IPV4);
    EXPECT_EQ(parse_ip("fe80::1")->family, HBS_FAMILY_IPV6);
    for (const char *text : {"", "192.168.0", "192.168.0.256", "fe80::1%eth0", "laptop", "1:2"})
        EXPECT_EQ(parse_ip(text), std::nullopt) << text;
}

struct shown {
    const char *name;
    std::string raw, text;
};

class Printable : public testing::TestWithParam<shown> {};

TEST_P(Printable, ShowsNothingThatATerminalActsOn) {
    EXPECT_EQ(printable(GetParam().raw), GetParam().text);
    for (char byte : printable(GetParam().raw))
        EXPECT_FALSE(static_cast<uint8_t>(byte) < 0x20 || byte == 0x7F);
}

const shown examples[] = {
    {"Plain", "laptop-1", "laptop-1"},
    {"Quotes", "a'b\"c$(reboot)`d`", "a'b\"c$(reboot)`d`"},
    {"Escape", "\033[2J\033]0;title\007", "\\x1b[2J\\x1b]0;title\\x07"},
    {"Newline", "a\nb\rc\td", "a\\nb\\rc\\td"},
    {"Delete", "\x7f", "\\x7f"},
    {"Backslash", "a\\nb", "a\\\\nb"},
    {"Utf8", "Küche 客厅 🎮", "Küche 客厅 🎮"},
    {"Latin1",
     "K\xfc"
     "che",
     "K\\xfc"
     "che"},
    {"CutUtf8", "K\xc3", "K\\xc3"},
    {"OverLong", "\xc0\xaf", "\\xc0\\xaf"},
    {"OverLongThree", "\xe0\x80\xaf", "\\xe0\\x80\\xaf"},
    {"Surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80"},
    {"BeyondUnicode", "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80"},
    {"LoneContinuation", "\x80", "\\x80"},
    {"C1Control",
     "\xc2\x9b"
     "2J",
     "\\u{009b}2J"},
    {"RightToLeft", "\xe2\x80\xaetxt.exe", "\\u{202e}txt.exe"},
    {"ZeroWidth",
     "a\xe2\x80\x8b"
     "b",
     "a\\u{200b}b"},
};

std::string name_of(const testing::TestParamInfo<shown> &info) {
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(All, Printable, testing::ValuesIn(examples), name_of);

TEST(Width, CountsTerminalCells) {
    EXPECT_EQ(display_width("abc"), 3);
    EXPECT_EQ(display_width("Küche"), 5);
    EXPECT_EQ(display_width("客厅"), 4);
    EXPECT_EQ(display_width("e\xcc\x81"), 1) << "a letter and its combining accent";
}

TEST(Width, OfSignsThatStandAmongNarrowOnes) {
    for (const char *wide : {"⚡", "⌚", "☔", "✅", "🩰", "🛜", "＝", "𛄲"})
        EXPECT_EQ(display_width(wide), 2) << wide;
    for (const char *narrow : {"ｱ", "☀", "✔", "→", "⌘", "🌡", "🖥", "🛠", "─"})
        EXPECT_EQ(display_width(narrow), 1) << narrow;
    EXPECT_EQ(display_width(cut_to_width("⚡⚡⚡⚡⚡⚡", 7)), 7);
}

TEST(Csv, ACellIsQuotedWhereItHasToBe) {
    EXPECT_EQ(csv_cell("laptop"), "laptop");
    EXPECT_EQ(csv_cell(""), "");
    EXPECT_EQ(csv_cell("a,\"b\""), "\"a,\"\"b\"\"\"");
    EXPECT_EQ(csv_cell("a;b"), "\"a;b\"");
    EXPECT_EQ(csv_cell("a\tb"), "a\\tb");
}

TEST(Csv, ACellIsNeverAFormula) {
    for (const std::string sign : {"=", "+", "-", "@", "＝", "＋", "－", "＠"}) {
        EXPECT_EQ(csv_cell(sign + "1"), "'" + sign + "1");
        EXPECT_EQ(csv_cell("a;" + sign + "1"), "\"a;'" + sign + "1\"") << "where cells are separated by ;";
        EXPECT_EQ(csv_cell("a" + sign + "1"), "a" + sign + "1");
    }
    EXPECT_EQ(csv_cell("=a;=b;;-c"), "\"'=a;'=b;;'-c\"");
}

TEST(Width, CutTextSaysThatItWasCut) {
    EXPECT_EQ(cut_to_width("laptop", 6), "laptop");
    EXPECT_EQ(cut_to_width("laptop", 5), "lapt…");
    EXPECT_EQ(cut_to_width("客厅电视", 5), "客厅…");
    EXPECT_EQ(cut_to_width("客厅电视", 4), "客…") << "a wide character is never halved";
    EXPECT_EQ(cut_to_width("abc", 1), "…");
}

} // namespace words_test
