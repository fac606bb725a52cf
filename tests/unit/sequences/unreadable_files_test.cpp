// Settings files that are there and cannot be read for a while, for want of descriptors: what stands in them
// is not replaced by what is known without it.
#include <sys/resource.h>

#include "base/paths.h"
#include "files/trusted_devices.h"
#include "support/management.h"

namespace unreadable_files_test {

// No file can be opened while one of these is there.
struct without_descriptors {
    rlimit old{};
    without_descriptors() {
        EXPECT_EQ(0, getrlimit(RLIMIT_NOFILE, &old));
        const rlimit none = {0, old.rlim_max};
        EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    }
    without_descriptors(const without_descriptors &) = delete;
    without_descriptors &operator=(const without_descriptors &) = delete;
    ~without_descriptors() { EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &old)); }
};

using UnreadableFiles = ManagementTest;

TEST_F(UnreadableFiles, Start_TakesAClientFileThatCannotBeOpenedForNoMissingOne) {
    ASSERT_EQ(0, trust(LAPTOP, "kept"));
    const without_descriptors now;
    EXPECT_EQ(0, hbs_nv_load_clients()) << "or the start would write it anew without what it holds";
}

TEST_F(UnreadableFiles, Update_AppendsNoSecondLineToAFileThatItCouldNotRead) {
    ASSERT_EQ(0, trust(LAPTOP, "kept"));
    const hbs_filter_request request = filter(HBS_LIST_WHITE, LAPTOP, {1, 2, 3, 4, 5, 6});
    ASSERT_EQ(0, hbs_api_set_mac_filter(&request));
    const std::string clients = read_file(HBS_CLIENT_FILE), rules = read_file(HBS_WHITE_RULES);
    {
        const without_descriptors now;
        EXPECT_EQ(0, trust(LAPTOP, "changed"));
        EXPECT_EQ(0, hbs_api_clr_mac_filter(&request)) << "it is answered";
    }
    EXPECT_EQ(clients, read_file(HBS_CLIENT_FILE));
    EXPECT_EQ(rules, read_file(HBS_WHITE_RULES));
    EXPECT_EQ(0, hbs_api_clr_mac_filter(&request));
    EXPECT_EQ("", read_file(HBS_WHITE_RULES)) << "the next try does it";
}

} // namespace unreadable_files_test
