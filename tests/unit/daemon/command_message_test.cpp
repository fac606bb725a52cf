// Datagrams as requests: texts without a NUL end with their field and do not run into the next one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "daemon/command_message.h"
#include "support/datagram.h"

namespace {

class CommandMessage : public testing::Test {
  protected:
    void SetUp() override {
        hbs_list_mutex_init();
        hbs_db_ready = 1;
        fake::reset();
    }
};

TEST_F(CommandMessage, UnterminatedMacText_EndsWithItsField) {
    EXPECT_THAT(dispatch(Datagram(104).fill(1, 40, 'a')).lines[0],
                testing::EndsWith(": mac " + std::string(17, 'a')));
}

TEST_F(CommandMessage, UnterminatedLeaseTexts_EndWithTheirFields) {
    const std::string expected = "'" + std::string(127, 'h') + "' '" + std::string(63, 'i') + "' '" +
                                 std::string(6, 'o') + "' '" + std::string(64, 's') + "' '" +
                                 std::string(64, 'p') + "' '" + std::string(258, 'f') + "'";
    auto datagram = dhcpv4(105).fill(20, 128, 'h').fill(148, 64, 'i').fill(212, 7, 'o').fill(219, 65, 's');
    EXPECT_THAT(dispatch(datagram.fill(284, 65, 'p').fill(349, 259, 'f')).lines[1],
                testing::HasSubstr(expected));
}

TEST_F(CommandMessage, UnterminatedDhcpv6Texts_EndWithTheirFields) {
    const std::string expected = "'" + std::string(127, 'h') + "' '" + std::string(6, 'o') + "' '" +
                                 std::string(64, 's') + "' '" + std::string(64, 'p') + "' '" +
                                 std::string(127, 'f') + "'";
    auto datagram = dhcpv6(106).fill(40, 128, 'h').fill(168, 7, 'o').fill(175, 65, 's').fill(240, 65, 'p');
    EXPECT_THAT(dispatch(datagram.fill(305, HBS_MSG_MAX - 305, 'f')).lines[1], testing::HasSubstr(expected));
}

TEST_F(CommandMessage, UnterminatedStaticLeaseTexts_EndWithTheirFields) {
    const std::string expected = "'" + std::string(255, 'c') + "' '" + std::string(63, 'h') + "'";
    auto datagram = Datagram(2).u16(4, 2).fill(34, 256, 'c').fill(290, HBS_MSG_MAX - 290, 'h');
    EXPECT_THAT(dispatch(datagram).lines[2], testing::EndsWith(expected));
}

TEST_F(CommandMessage, UnterminatedFilterTexts_EndWithTheirFields) {
    const std::string expected = "'" + std::string(255, 'c') + "' '" + std::string(255, 'd') + "' '" +
                                 std::string(255, 'k') + "' '" + std::string(255, 'm') + "' 99";
    auto datagram = filter(7).fill(16, 256, 'c').fill(296, 256, 'd').fill(552, 256, 'k').fill(808, 256, 'm');
    const auto lines = dispatch(datagram).lines;
    EXPECT_THAT(lines[0], testing::EndsWith(": comment is " + std::string(255, 'c')));
    EXPECT_THAT(lines[1], testing::EndsWith(expected));
}

TEST_F(CommandMessage, UnterminatedTrustComment_EndsWithItsField) {
    EXPECT_THAT(dispatch(Datagram(5).u8(2, 0x11).fill(32, 400, 'c')).lines[1],
                testing::EndsWith(" '" + std::string(255, 'c') + "'"));
}

TEST_F(CommandMessage, UnterminatedCommentAndHost_EndWithTheirFields) {
    const std::string expected = "'" + std::string(255, 'c') + "' '" + std::string(63, 'h') + "'";
    EXPECT_THAT(dispatch(Datagram(111).u16(2, 2).fill(24, 256, 'c').fill(280, 500, 'h')).lines[0],
                testing::EndsWith(expected));
}

} // namespace
