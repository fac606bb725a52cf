// What is left when the files of the user's settings cannot be written: a full or read-only place, or
// something in the way. The operation still answers, the log says what failed, and the old files are intact;
// what is only added gets there where it can.
#include <algorithm>
#include <fstream>
#include <functional>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/paths.h"
#include "files/user_settings.h"
#include "support/management.h"

namespace unwritable_files_test {

// What a static lease adds. The name is that of the comment that was set before.
constexpr const char *NEW_LEASE = "02:aa:00:00:00:11 192.168.0.41\n";
constexpr const char *NEW_RECORD = "02:aa:00:00:00:11 192.168.0.41 0 h 1 null null null\n";

constexpr const char *PLACE = "/nvram/8";
const std::vector<std::string> FILES = {HBS_CLIENT_FILE,       HBS_WHITE_RULES, HBS_BLACK_RULES,
                                        HBS_TRUSTED_INSTANCES, STATIC_LEASES,   HOST_RECORDS};

// One operation that changes files, and those whose replacement is tried.
struct Operation {
    const char *name;
    std::function<int()> run;
    std::vector<std::string> files;
};

class UnwritableFiles : public ManagementTest {
  protected:
    void SetUp() override {
        ManagementTest::SetUp();
        if (HasFatalFailure())
            return;
        ASSERT_EQ(0, mount("tmpfs", PLACE, "tmpfs", 0, "size=128k")) << "the box lets its user mount";
        mounted_ = true;
        ASSERT_EQ(0, mkdir("/nvram/8/dhcpd", 0755));
        write_file(HBS_CLIENT_FILE, " version 1\n");
        // Two of everything: what only empties a file needs no room.
        write_file(STATIC_LEASES, "02:aa:00:00:00:99 192.168.0.99\n");
        write_file(HOST_RECORDS, "02:aa:00:00:00:99 192.168.0.99 0 x 1 null null null\n");
        ASSERT_EQ(0, trust("02:aa:00:00:00:99"));
        ASSERT_EQ(0, trust(LAPTOP, "old"));
        for (const uint8_t type : {uint8_t{HBS_LIST_WHITE}, uint8_t{HBS_LIST_BLACK}}) {
            for (const uint32_t rule : {1u, 2u}) {
                const hbs_filter_request request = filter(type, LAPTOP, {rule, 2, 3, 4, 5, 6});
                ASSERT_EQ(0, hbs_api_set_mac_filter(&request));
            }
        }
        ASSERT_EQ(0, set_lease("192.168.0.40"));
        for (const std::string &file : FILES)
            before_.push_back(read_file(file));
        clear_log();
    }

    void TearDown() override {
        if (mounted_)
            EXPECT_EQ(0, umount2(PLACE, MNT_DETACH));
        ManagementTest::TearDown();
    }

    static int set_lease(const char *address) {
        hbs_static_lease_request request{};
        request.family = AF_INET;
        const Mac mac = mac_of(LAPTOP);
        const Ipv4 bytes = ipv4_of(address);
        std::copy(mac.begin(), mac.end(), request.mac);
        std::copy(bytes.begin(), bytes.end(), request.address);
        request.comment = "";
        request.host = "";
        return hbs_api_set_static_lease(&request);
    }

    static void fill_up() {
        {
            std::ofstream filler("/nvram/8/filler", std::ios::binary);
            while (filler.write(std::string(4096, 'f').data(), 4096).flush()) {}
        }
        struct stat status;
        ASSERT_EQ(0, stat("/nvram/8/filler", &status));
        ASSERT_GT(status.st_size, 0);
    }

    static void make_read_only() {
        ASSERT_EQ(0, mount(nullptr, PLACE, nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
    }

    static void make_writable() { ASSERT_EQ(0, mount(nullptr, PLACE, nullptr, MS_REMOUNT, nullptr)); }

    // Something that cannot be removed stands where each new file would be written.
    static void block_new_files() {
        for (const std::string &file : FILES)
            ASSERT_EQ(0, mkdir((file + ".hbs-new").c_str(), 0755));
    }

    const std::vector<Operation> operations_ = {
        {"trust", [] { return trust(LAPTOP, "new"); }, {HBS_CLIENT_FILE}},
        {"trust another", [] { return trust(TABLET, "new"); }, {HBS_CLIENT_FILE, HBS_TRUSTED_INSTANCES}},
        {"distrust", [] { return distrust(LAPTOP); }, {HBS_CLIENT_FILE, HBS_TRUSTED_INSTANCES}},
        {"comment",
         [] { return hbs_api_set_comment_host(client_of(LAPTOP), "new", "h"); },
         {HBS_CLIENT_FILE}},
        {"white",
         [] {
             const hbs_filter_request request = filter(HBS_LIST_WHITE, LAPTOP, {7, 8, 9, 4, 5, 6});
             return hbs_api_set_mac_filter(&request);
         },
         {HBS_WHITE_RULES}},
        {"clear black",
         [] {
             const hbs_filter_request request = filter(HBS_LIST_BLACK, LAPTOP, {1, 2, 3});
             return hbs_api_clr_mac_filter(&request);
         },
         {HBS_CLIENT_FILE, HBS_BLACK_RULES}},
    };

    // All operations answer 0, name what could not be written, and leave every file as it was.
    void expect_answers_and_intact_files() {
        for (const Operation &operation : operations_) {
            SCOPED_TRACE(operation.name);
            clear_log();
            EXPECT_EQ(0, operation.run());
            for (const std::string &file : operation.files)
                EXPECT_GE(logged_containing("HOSTBASE: can't replace " + file + " (error "), 1u) << file;
            for (size_t i = 0; i < FILES.size(); ++i)
                EXPECT_EQ(before_[i], read_file(FILES[i])) << FILES[i];
        }
        EXPECT_STREQ("new", seen(LAPTOP)->comment) << "memory has what the files could not take";
        EXPECT_EQ(HBS_TRUST_SITE, seen(TABLET)->trust);
    }

    // A static lease answers 0 and leaves the old one where it cannot be taken out. `lease` and `record` are
    // what stands behind it then.
    void expect_lease_behind_the_old_one(const std::string &lease, const std::string &record) {
        clear_log();
        EXPECT_EQ(0, set_lease("192.168.0.41"));
        for (const char *file : {STATIC_LEASES, HOST_RECORDS})
            EXPECT_GE(logged_containing(std::string("HOSTBASE: can't replace ") + file + " (error "), 1u);
        EXPECT_EQ(before_of(STATIC_LEASES) + lease, read_file(STATIC_LEASES));
        EXPECT_EQ(before_of(HOST_RECORDS) + record, read_file(HOST_RECORDS));
    }

    std::string before_of(const std::string &file) const {
        return before_[static_cast<size_t>(std::find(FILES.begin(), FILES.end(), file) - FILES.begin())];
    }

    std::vector<std::string> before_;

  private:
    bool mounted_ = false;
};

TEST_F(UnwritableFiles, OfAFullPlace_StayAsTheyAre) {
    fill_up();
    expect_answers_and_intact_files();
    expect_lease_behind_the_old_one(NEW_LEASE, NEW_RECORD); // their last blocks have room for a line
    for (const std::string &file : FILES)
        EXPECT_FALSE(file_exists(file + ".hbs-new")) << file;
}

TEST_F(UnwritableFiles, OfAReadOnlyPlace_StayAsTheyAre) {
    make_read_only();
    expect_answers_and_intact_files();
    expect_lease_behind_the_old_one("", "");
    make_writable();
}

TEST_F(UnwritableFiles, WithSomethingInTheWay_StayAsTheyAre) {
    block_new_files();
    expect_answers_and_intact_files();
    expect_lease_behind_the_old_one(NEW_LEASE, NEW_RECORD);
}

TEST_F(UnwritableFiles, OnceThereIsRoomAgain_TakeWhatIsSetNext) {
    fill_up();
    EXPECT_EQ(0, trust(LAPTOP, "lost"));
    ASSERT_EQ(0, unlink("/nvram/8/filler"));
    EXPECT_EQ(0, hbs_api_set_trust(2, true, "kept", client_of(LAPTOP)));
    reload();
    EXPECT_STREQ("kept", seen(LAPTOP)->comment);
}

TEST_F(UnwritableFiles, OfAFullPlace_AreStillResetToDefaults) {
    fill_up();
    EXPECT_EQ(0, hbs_nv_reset());
    EXPECT_EQ(" version 1\n", read_file(HBS_CLIENT_FILE));
    for (const char *path : {HBS_WHITE_RULES, HBS_BLACK_RULES, HBS_TRUSTED_INSTANCES})
        EXPECT_FALSE(file_exists(path)) << path;
}

TEST_F(UnwritableFiles, OfAReadOnlyPlace_CannotBeResetWhichIsAnswered) {
    make_read_only();
    EXPECT_EQ(-1, hbs_nv_reset());
    EXPECT_GE(logged_containing("HOSTBASE: can't replace /nvram/8/hostbase.txt"), 1u);
    for (size_t i = 0; i < FILES.size(); ++i)
        EXPECT_EQ(before_[i], read_file(FILES[i])) << FILES[i];
    make_writable();
}

TEST_F(UnwritableFiles, OfAReadOnlyPlace_DoNotKeepADaemonFromStarting) {
    write_file(HBS_CLIENT_FILE, "no version\n");
    make_read_only();
    EXPECT_EQ(0, hbs_set_route_mode(0));
    EXPECT_EQ(-1, hbs_nv_load_clients());
    hbs_nv_save_clients();
    hbs_nv_load_rules();
    EXPECT_EQ("no version\n", read_file(HBS_CLIENT_FILE));
    EXPECT_EQ(0, trust(LAPTOP));
    make_writable();
}

} // namespace unwritable_files_test
