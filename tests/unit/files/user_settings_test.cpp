// The files of what users set, all of them together.
#include <sys/stat.h>

#include "base/paths.h"
#include "files/user_settings.h"
#include "support/events.h"

namespace user_settings_test {

using UserSettings = EventTest;

TEST_F(UserSettings, TakesTheOthersAccessToTheSettingsAway) {
    for (const char *path : {HBS_CLIENT_FILE, HBS_WHITE_RULES, HBS_BLACK_RULES, HBS_TRUSTED_INSTANCES})
        write_file(path, " version 1\n");
    hbs_settings_tidy();
    for (const char *path : {HBS_CLIENT_FILE, HBS_WHITE_RULES, HBS_BLACK_RULES, HBS_TRUSTED_INSTANCES}) {
        struct stat status = {};
        ASSERT_EQ(0, stat(path, &status));
        EXPECT_EQ(0600u, status.st_mode & 07777) << path;
    }
}

TEST_F(UserSettings, EmptiesTheFileAndDeletesTheOtherThree) {
    write_file(HBS_CLIENT_FILE, " version 1\n02:aa:00:00:00:11 0\n");
    for (const char *path : {HBS_WHITE_RULES, HBS_BLACK_RULES, HBS_TRUSTED_INSTANCES})
        write_file(path, "x");
    EXPECT_EQ(0, hbs_nv_reset());
    EXPECT_EQ(" version 1\n", read_file(HBS_CLIENT_FILE));
    for (const char *path : {HBS_WHITE_RULES, HBS_BLACK_RULES, HBS_TRUSTED_INSTANCES})
        EXPECT_FALSE(file_exists(path)) << path;
}

TEST_F(UserSettings, AnswersTheResultOfTheLastUnlink) {
    write_file(HBS_WHITE_RULES, "x");
    EXPECT_EQ(-1, hbs_nv_reset()) << "there was no file of trusted devices";
    EXPECT_FALSE(file_exists(HBS_WHITE_RULES));
}

TEST_F(UserSettings, ClearsWhatAPowerCutLeftBesideTheFiles) {
    const std::string files[] = {HBS_CLIENT_FILE,
                                 HBS_WHITE_RULES,
                                 HBS_BLACK_RULES,
                                 HBS_TRUSTED_INSTANCES,
                                 "/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases",
                                 "/nvram/8/dhcpd/udhcpd.192.168.1.1.host"};
    for (const std::string &file : files)
        write_file(file + ".hbs-new", "half a fi");
    hbs_settings_tidy();
    for (const std::string &file : files)
        EXPECT_FALSE(file_exists(file + ".hbs-new")) << file;
}

} // namespace user_settings_test
