// The file of values: how its lines are read, and that a change is seen by the next call.
#include <atomic>
#include <eventscope.h>
#include <filesystem>
#include <thread>
#include <unistd.h>
#include <vector>

#include <db.h>
#include <extswt.h>
#include <gwdb.h>
#include <lsddb.h>
#include <nvm.h>
#include <rnddb.h>
#include <sysuptime.h>

#include "support/gateway.h"

namespace values_test {

class HostValues : public GatewayTest {
  protected:
    int byte(int id) { return NVM_GetByte(id); }
};

TEST_F(HostValues, AreReadAsDecimalAndHexadecimal) {
    write_values("nvm.byte.1 = 24\nnvm.byte.2=0x18\n  nvm.byte.3\t =\t7  \r\nnvm.byte.4 = 010\n");
    EXPECT_EQ(24, byte(1));
    EXPECT_EQ(24, byte(2));
    EXPECT_EQ(7, byte(3));
    EXPECT_EQ(10, byte(4));
}

TEST_F(HostValues, CommentsBeginAtTheStartOrBehindABlank) {
    write_values("# nvm.byte.1 = 1\nnvm.byte.2 = 2 # two\n\t# x\nwifi.ssid.1.auth = a\nnvm.byte.3 = 3#3\n");
    EXPECT_EQ(0, byte(1));
    EXPECT_EQ(2, byte(2));
    EXPECT_EQ(0, byte(3)) << "a # inside a word is part of the value, which then is no number";
}

TEST_F(HostValues, TheLastLineOfAKeyCounts) {
    write_values("nvm.byte.1 = 1\nnvm.byte.1 = 2\n");
    EXPECT_EQ(2, byte(1));
}

TEST_F(HostValues, KeysMatchWithoutRegardToCase) {
    write_values("NVM.Byte.1 = 1\n");
    EXPECT_EQ(1, byte(1));
}

TEST_F(HostValues, OddLinesAreSkippedAndTheRestIsRead) {
    std::string text = "no equals sign\n= no key\n\n===\n";
    text += std::string("nvm.byte.1 = 1\0\n", 16);
    text += std::string(100000, 'x') + " = 1\n" + std::string(100000, 'y') + "\n";
    text += "nvm.byte.2 = 999\nnvm.byte.3 = -1\nnvm.byte.5 = 12x\nnvm.byte.6 =\nnvm.byte.4 = 4";
    write_values(text);
    EXPECT_EQ(0, byte(1)) << "a line with a NUL is no line";
    EXPECT_EQ(0, byte(2));
    EXPECT_EQ(0, byte(3));
    EXPECT_EQ(0, byte(5));
    EXPECT_EQ(0, byte(6));
    EXPECT_EQ(4, byte(4)) << "the last line needs no newline";
}

TEST_F(HostValues, TheNextEventSeesAChange) {
    set("nvm.byte.1", 1);
    EVENT_Begin();
    EXPECT_EQ(1, byte(1));
    set("nvm.byte.1", 2);
    EVENT_End();
    EVENT_Begin();
    EXPECT_EQ(2, byte(1));
    EVENT_End();
    set("nvm.byte.1", 3);
    EXPECT_EQ(3, byte(1)) << "as does who is in no event";
}

TEST_F(HostValues, AreLookedAtOnceInAShortEvent) {
    int before = 0, within = 0;
    for (int tries = 0; tries < 1000 && within == before; tries++) {
        set("nvm.byte.1", before = tries % 100);
        EVENT_Begin();
        EVENT_Begin();
        EXPECT_EQ(before, byte(1));
        EVENT_End();
        set("nvm.byte.1", before = 100 + tries % 100);
        within = byte(1); // the old value, unless the clock has ticked
        EVENT_End();
    }
    EXPECT_NE(before, within);
}

TEST_F(HostValues, AnEventThatLastsSeesAChangeAtTheNextTick) {
    set("nvm.byte.1", 1);
    EVENT_Begin();
    EXPECT_EQ(1, byte(1));
    set("nvm.byte.1", 2);
    EXPECT_TRUE(wait_until([&] { return byte(1) == 2; }));
    EVENT_End();
}

TEST_F(HostValues, OneThreadsEventIsNoOthers) {
    set("nvm.byte.1", 1);
    EVENT_Begin();
    EXPECT_EQ(1, byte(1));
    set("nvm.byte.1", 2);
    std::thread([&] { EXPECT_EQ(2, byte(1)); }).join();
    EVENT_End();
}

TEST_F(HostValues, AMissingFileGivesTheDefaults) {
    set("nvm.byte.1", 1);
    EXPECT_EQ(1, byte(1));
    unlink(values_path().c_str());
    EXPECT_EQ(0, byte(1));
    uint8_t mac[6];
    EXPECT_EQ(-1, DB_GetArray(70, mac));
}

TEST_F(HostValues, ADirectoryOrAHugeFileCountsAsMissing) {
    set("nvm.byte.1", 1);
    unlink(values_path().c_str());
    std::filesystem::create_directory(values_path());
    EXPECT_EQ(0, byte(1));
    std::filesystem::remove(values_path());
    write_values("nvm.byte.1 = 1\n" + std::string(5 * 1024 * 1024, '#') + "\n");
    EXPECT_EQ(0, byte(1));
    write_values("nvm.byte.1 = 1\n");
    EXPECT_EQ(1, byte(1));
}

TEST_F(HostValues, AChangeIsSeenByTheNextCall) {
    for (int value = 1; value < 200; value++) {
        set("nvm.byte.1", value);
        ASSERT_EQ(value, byte(1));
    }
}

TEST_F(HostValues, AChangeInPlaceWithTheSameSizeIsSeen) {
    for (int value = 100; value < 250; value++) {
        write_file(values_path(), "nvm.byte.1 = " + std::to_string(value) + "\n");
        ASSERT_EQ(value, byte(1));
    }
}

TEST_F(HostValues, AnUnchangedFileIsStillRightAfterItSettled) {
    set("nvm.byte.1", 1);
    sleep_milliseconds(150);
    EXPECT_EQ(1, byte(1));
    EXPECT_EQ(1, byte(1));
    set("nvm.byte.1", 2);
    EXPECT_EQ(2, byte(1));
}

TEST_F(HostValues, ThePathIsTakenFromTheEnvironment) {
    set("nvm.byte.1", 1);
    std::string other = directory() + "/other.conf";
    write_file(other, "nvm.byte.1 = 2\n");
    setenv("HBS_HOST_CONF", other.c_str(), 1);
    EXPECT_EQ(2, byte(1));
}

TEST_F(HostValues, ManyThreadsReadWhileTheFileChanges) {
    std::atomic<bool> stop = false;
    std::atomic<int> wrong = 0;
    set("nvm.byte.1", 1);
    set("uptime", 11);
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; i++) {
        readers.emplace_back([&] {
            while (!stop) {
                int value = NVM_GetByte(1);
                uint32_t seconds = 0;
                if ((value != 1 && value != 2) || MAIN_getSysUpTime(&seconds) != 0 || seconds != 11)
                    wrong++;
            }
        });
    }
    for (int i = 0; i < 300; i++)
        set("nvm.byte.1", 1 + i % 2);
    stop = true;
    for (std::thread &reader : readers)
        reader.join();
    EXPECT_EQ(0, wrong);
}

TEST_F(HostValues, TheExampleIsAGatewayWithTwoNetworks) {
    write_values(read_file(HBS_EXAMPLE_VALUES));
    ASSERT_EQ(0, RNDDB_Read(0, 1));
    ASSERT_EQ(0, LSDDB_Read(0, 1));
    rnddb_handle handle = {};
    rnddb_params params = {};
    ASSERT_EQ(0, RNDDB_Get1stHandleParams(&handle, &params));
    EXPECT_STREQ("l2sd0.2", params.ifname);
    ASSERT_EQ(0, RNDDB_GetNextHandleParams(&handle, &params));
    EXPECT_STREQ("l2sd0.3", params.ifname);
    EXPECT_EQ(1, RNDDB_GetNextHandleParams(&handle, &params));
    uint8_t mac[6] = {};
    EXPECT_EQ(0, DB_GetArray(DB_ITEM_BASE_MAC, mac));
    EXPECT_EQ(0x55, mac[5]);
    uint32_t enabled = 7;
    EXPECT_EQ(0, GWDB_FLAPLISTCFG_ENABLE_GET(&enabled));
    EXPECT_EQ(0u, enabled);
    for (uint8_t last = 0x11; last <= 0x16; last++) {
        const uint8_t host[6] = {2, 0xaa, 0, 0, 0, last};
        uint16_t hit = 0;
        uint32_t port = 0;
        ASSERT_EQ(0, extSwitchSearchMac(host, &hit, &port));
        EXPECT_NE(0, hit);
        EXPECT_TRUE(port >= 1 && port <= EXTSWT_PORTS) << port;
    }
}

} // namespace values_test
