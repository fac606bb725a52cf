// The file that keeps the networks' numbers.
#include <cstdio>
#include <gtest/gtest.h>
#include <string>

#include "linux_conf.h"
#include "linux_lans.h"

namespace lans_test {

struct LinuxNumbers : testing::Test {
    linux_conf conf;
    linux_lan_numbers numbers = {};
    LinuxNumbers() { linux_conf_preset(&conf); }
};

TEST_F(LinuxNumbers, ALineOfTheNumbersThatMakesNoSenseCostsNoOther) {
    const char *path = "/tmp/networks";
    FILE *file = fopen(path, "we");
    (void)fprintf(file, "garbage\n%s\n9 nine\n3 br0\n3 br1\n\n2\n4 br0\n5 lan\n",
                  std::string(200, 'x').c_str());
    (void)fclose(file);
    ASSERT_TRUE(linux_lan_numbers_load(path, &conf, &numbers));
    EXPECT_STREQ("br0", numbers.name[2]);
    EXPECT_STREQ("lan", numbers.name[4]);
    for (const int free : {0, 1, 3, 5, 6, 7})
        EXPECT_STREQ("", numbers.name[free]);
}

TEST_F(LinuxNumbers, NumbersThatCannotBeReadAreNoMissingOnes) {
    EXPECT_TRUE(linux_lan_numbers_load("/tmp/no-such-networks", &conf, &numbers));
    EXPECT_FALSE(linux_lan_numbers_load("/tmp", &conf, &numbers)) << "can be opened, but not read";
    EXPECT_FALSE(linux_lan_numbers_load("/dev/null/networks", &conf, &numbers));
}

} // namespace lans_test
