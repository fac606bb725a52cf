// The binary file of trusted devices, byte for byte.
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "base/paths.h"
#include "files/trusted_devices.h"
#include "support/gateway.h"

namespace trusted_devices_test {

std::string u32(uint32_t number) {
    return {reinterpret_cast<const char *>(&number), sizeof number};
}

std::string record(const std::string &mac, uint32_t instance) {
    return u32(33) + "mac:" + u32(6) + mac + "tr69_i_id:" + u32(4) + u32(instance) + std::string(1, '\0');
}

const std::string FIRST("\x02\xaa\0\0\0\x11", 6);
const std::string SECOND("\x02\xaa\0\0\0\x12", 6);
const std::string THIRD("\x02\xaa\0\0\0\x13", 6);
const std::string NEW("\x02\xaa\0\0\0\x14", 6);

hbs_trusted_device device(const std::string &mac, uint32_t instance = 0) {
    hbs_trusted_device result{};
    memcpy(result.mac, mac.data(), mac.size());
    result.instance = instance;
    return result;
}

class TrustedDevices : public GatewayTest {
  protected:
    static int set(const std::string &mac, uint32_t instance) {
        const hbs_trusted_device entry = device(mac, instance);
        return hbs_nv_set_trusted_tr69_instance(&entry);
    }
    static int remove(const std::string &mac) {
        return hbs_nv_remove_trusted_tr69_instance(reinterpret_cast<const uint8_t *>(mac.data()));
    }
    static int get(const std::string &mac, uint32_t *instance) {
        hbs_trusted_device entry = device(mac, 77);
        const int result = hbs_nv_get_trusted_tr69_instance(&entry);
        *instance = entry.instance;
        return result;
    }
    static std::string content() { return read_file(HBS_TRUSTED_INSTANCES); }
};

TEST_F(TrustedDevices, Set_WithoutAFile_WritesOneRecordInNativeOrder) {
    EXPECT_EQ(0, set(FIRST, 0x01020304));
    EXPECT_EQ(37u, content().size());
    EXPECT_EQ(record(FIRST, 0x01020304), content());
}

TEST_F(TrustedDevices, Set_OfAnotherMac_AppendsAndOfTheSameReplaces) {
    EXPECT_EQ(0, set(FIRST, 1));
    EXPECT_EQ(0, set(SECOND, 2));
    EXPECT_EQ(record(FIRST, 1) + record(SECOND, 2), content());
    EXPECT_EQ(0, set(FIRST, 9));
    EXPECT_EQ(record(FIRST, 9) + record(SECOND, 2), content());
}

TEST_F(TrustedDevices, Set_CopiesRecordsWithUnknownTagsAndDropsThoseWithoutAMac) {
    const std::string unknown =
        u32(27) + "x:" + u32(3) + "abc" + "mac:" + u32(6) + SECOND + std::string(4, '\0');
    const std::string without = u32(10) + "name:" + u32(0) + std::string(1, '\0');
    write_file(HBS_TRUSTED_INSTANCES, unknown + without);
    EXPECT_EQ(0, set(FIRST, 1));
    EXPECT_EQ(unknown + record(FIRST, 1), content());
}

TEST_F(TrustedDevices, Get_FindsTheRecordOfTheMacAndSkipsUnknownTags) {
    const std::string items = "x:" + u32(3) + "abc" + "mac:" + u32(6) + SECOND + "tr69_i_id:" + u32(4) +
                              u32(5) + std::string(1, '\0');
    write_file(HBS_TRUSTED_INSTANCES, record(FIRST, 3) + u32(static_cast<uint32_t>(items.size())) + items);
    uint32_t instance = 0;
    EXPECT_EQ(0, get(FIRST, &instance));
    EXPECT_EQ(3u, instance);
    EXPECT_EQ(0, get(SECOND, &instance));
    EXPECT_EQ(5u, instance);
}

TEST_F(TrustedDevices, Get_OfARecordWithoutAnInstance_FindsItWithoutANumber) {
    const std::string items = "x:" + u32(3) + "abc" + "mac:" + u32(6) + SECOND + std::string(1, '\0');
    write_file(HBS_TRUSTED_INSTANCES, u32(static_cast<uint32_t>(items.size())) + items);
    uint32_t instance = 1;
    EXPECT_EQ(0, get(SECOND, &instance));
    EXPECT_EQ(0u, instance);
}

TEST_F(TrustedDevices, Get_WithoutFileOrRecord_FailsAndLeavesTheInstance) {
    uint32_t instance = 0;
    EXPECT_EQ(-1, get(FIRST, &instance));
    EXPECT_EQ(77u, instance);
    write_file(HBS_TRUSTED_INSTANCES, record(SECOND, 1));
    EXPECT_EQ(-1, get(FIRST, &instance));
}

TEST_F(TrustedDevices, Remove_DropsTheRecordOfTheMac) {
    EXPECT_EQ(-1, remove(FIRST)) << "no file";
    write_file(HBS_TRUSTED_INSTANCES, record(FIRST, 1) + record(SECOND, 2));
    EXPECT_EQ(0, remove(FIRST));
    EXPECT_EQ(record(SECOND, 2), content());
}

TEST_F(TrustedDevices, DamagedLength_LosesNoRecordBehindIt) {
    const std::string damaged = record(FIRST, 1);
    const std::string behind = record(SECOND, 2) + record(THIRD, 3);
    for (const uint32_t length :
         {0u, 1u, 12u, 20u, 32u, 34u, 36u, 37u, 40u, 60u, 70u, 75u, 4096u, 4097u, 0xffffffffu}) {
        write_file(HBS_TRUSTED_INSTANCES, u32(length) + damaged.substr(4) + behind);
        uint32_t instance = 0;
        EXPECT_EQ(0, get(SECOND, &instance)) << length;
        EXPECT_EQ(2u, instance) << length;
        clear_log();
        EXPECT_EQ(0, set(NEW, 9)) << length;
        EXPECT_EQ(1u, logged_containing("client_trusted_device_tr69instance.txt is damaged: ")) << length;
        EXPECT_TRUE(content().ends_with(behind + record(NEW, 9))) << length;
        clear_log();
        EXPECT_EQ(0, remove(NEW));
        EXPECT_TRUE(log_lines().empty()) << "what was damaged is gone";
        EXPECT_TRUE(content().ends_with(behind)) << length;
    }
}

TEST_F(TrustedDevices, TornLastRecord_IsDroppedWithOneLine) {
    write_file(HBS_TRUSTED_INSTANCES, record(FIRST, 1) + record(SECOND, 2).substr(0, 20));
    EXPECT_EQ(0, set(FIRST, 5));
    EXPECT_EQ(record(FIRST, 5), content());
    EXPECT_EQ(
        (std::vector<std::string>{"HOSTBASE: /nvram/8/client_trusted_device_tr69instance.txt is damaged: "
                                  "20 bytes that are no record are dropped"}),
        log_lines());
}

// What another program wrote in another order is no damage, even where a number looks like a length.
TEST_F(TrustedDevices, InstanceBeforeTheMac_IsNoDamage) {
    const std::string items = "tr69_i_id:" + u32(4) + u32(20) + "mac:" + u32(6) + FIRST +
                              std::string(1, '\0') + std::string(9, '\0');
    const std::string other = u32(static_cast<uint32_t>(items.size())) + items;
    write_file(HBS_TRUSTED_INSTANCES, other + record(SECOND, 2));
    EXPECT_EQ(0, set(THIRD, 3));
    EXPECT_EQ(other + record(SECOND, 2) + record(THIRD, 3), content());
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(TrustedDevices, FifoInItsPlace_FailsAtOnce) {
    ASSERT_EQ(0, mkfifo(HBS_TRUSTED_INSTANCES, 0666));
    uint32_t instance = 0;
    EXPECT_EQ(-1, get(FIRST, &instance));
    EXPECT_EQ(-1, remove(FIRST));
    EXPECT_EQ(-1, set(FIRST, 1));
    unlink(HBS_TRUSTED_INSTANCES);
}

TEST_F(TrustedDevices, DamagedFiles_DoNoHarm) {
    uint32_t instance = 0;
    const std::string whole = record(FIRST, 1);
    for (size_t length = 0; length < whole.size(); ++length) {
        write_file(HBS_TRUSTED_INSTANCES, whole.substr(0, length));
        EXPECT_EQ(-1, get(FIRST, &instance)) << length;
    }
    for (const std::string &bad :
         {u32(33) + "mac:" + u32(0xfffffff0) + std::string(40, 'x'), u32(0xffffffff) + std::string(40, 'x'),
          std::string(300, '\0'), std::string(300, ':')}) {
        write_file(HBS_TRUSTED_INSTANCES, bad);
        EXPECT_EQ(-1, get(FIRST, &instance));
    }
}

TEST_F(TrustedDevices, RecordsWithAMacOfAnotherLength_AreNobodysAndAreCopiedUnchanged) {
    const std::string longer = u32(17) + "mac:" + u32(8) + FIRST + "xx" + std::string(1, '\0');
    const std::string shorter = u32(11) + "mac:" + u32(2) + FIRST.substr(0, 2) + std::string(1, '\0');
    write_file(HBS_TRUSTED_INSTANCES, longer + shorter);
    EXPECT_EQ(0, set(FIRST, 1));
    EXPECT_EQ(longer + shorter + record(FIRST, 1), content());
    EXPECT_EQ(0, remove(FIRST));
    EXPECT_EQ(longer + shorter, content());
}

} // namespace trusted_devices_test
