// Calls of the C library that fail once while settings are read and written: what the files hold is not lost,
// and what was taken away does not come back. This program stands before those calls.
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "base/paths.h"
#include "files/trusted_devices.h"
#include "files/user_settings.h"
#include "support/management.h"

namespace {

int fstats_that_fail;
int removals_not_synced; // since a directory was

} // namespace

extern "C" int fstat(int descriptor, struct stat *status) noexcept {
    if (fstats_that_fail == 0)
        return fstatat(descriptor, "", status, AT_EMPTY_PATH);
    fstats_that_fail--;
    errno = EIO;
    return -1;
}

extern "C" int unlink(const char *path) noexcept {
    const int result = unlinkat(AT_FDCWD, path, 0);
    removals_not_synced += result == 0 ? 1 : 0;
    return result;
}

extern "C" int fsync(int descriptor) {
    struct stat status = {};
    if (fstatat(descriptor, "", &status, AT_EMPTY_PATH) == 0 && S_ISDIR(status.st_mode))
        removals_not_synced = 0;
    return fdatasync(descriptor);
}

// A text that grows, and the last piece of memory for it is not there. The C library tells of that by a null
// text only: the stream itself closes without an error.
extern "C" FILE *open_memstream(char **text, size_t *length) noexcept {
    *text = nullptr;
    *length = 0;
    return fopen("/dev/null", "w");
}

namespace failing_calls_test {

class FailingCalls : public ManagementTest {
  protected:
    void TearDown() override {
        fstats_that_fail = 0;
        ManagementTest::TearDown();
    }
};

TEST_F(FailingCalls, FileThatCannotBeLookedAt_IsNotTakenForAMissingOne) {
    ASSERT_EQ(0, trust(LAPTOP, "kept"));
    for (const int count : {1, 2, 3}) {
        EXPECT_EQ(0, hbs_set_route_mode(0));
        fstats_that_fail = count;
        EXPECT_EQ(0, hbs_nv_load_clients()) << count;
        fstats_that_fail = 0;
        EXPECT_EQ(count < 3, client_of(LAPTOP) != nullptr) << "it is tried three times";
    }
}

TEST_F(FailingCalls, PowerCutAfterAReset_BringsNothingBack) {
    for (const char *path : {HBS_CLIENT_FILE, HBS_WHITE_RULES, HBS_BLACK_RULES, HBS_TRUSTED_INSTANCES})
        write_file(path, "x");
    EXPECT_EQ(0, hbs_nv_reset());
    EXPECT_EQ(0, removals_not_synced);
}

TEST_F(FailingCalls, TextWithoutMemory_ReplacesNoFile) {
    ASSERT_EQ(0, trust(LAPTOP, "kept"));
    const std::string devices(37, 'x'), clients = client_file();
    write_file(HBS_TRUSTED_INSTANCES, devices);
    EXPECT_EQ(-1, hbs_nv_remove_trusted_tr69_instance(mac_of(TABLET).data()));
    EXPECT_TRUE(logged("HOSTBASE: can't replace " HBS_TRUSTED_INSTANCES " (error 12)"));
    hbs_nv_save_clients();
    EXPECT_TRUE(logged("HOSTBASE: can't replace " HBS_CLIENT_FILE " (error 12)"));
    EXPECT_EQ(devices, read_file(HBS_TRUSTED_INSTANCES));
    EXPECT_EQ(clients, client_file());
}

} // namespace failing_calls_test
