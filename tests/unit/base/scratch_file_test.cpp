// Temporary files of fixed names.
#include <sys/stat.h>
#include <unistd.h>

#include "base/scratch_file.h"
#include "support/gateway.h"

namespace scratch_file_test {

class ScratchFile : public GatewayTest {
  protected:
    std::string path() const { return directory() + "/scratch.tmp"; }
};

TEST_F(ScratchFile, StartsEmptyAndCanBeReadBack) {
    write_file(path(), "what a power cut left");
    FILE *stream = hbs_scratch_open(path().c_str());
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ(EOF, fgetc(stream));
    fputs("text", stream);
    rewind(stream);
    char text[8] = "";
    EXPECT_NE(nullptr, fgets(text, sizeof text, stream));
    EXPECT_STREQ("text", text);
    fclose(stream);
}

TEST_F(ScratchFile, FollowsNoLink) {
    write_file(directory() + "/victim", "precious");
    ASSERT_EQ(0, symlink((directory() + "/victim").c_str(), path().c_str()));
    FILE *stream = hbs_scratch_open(path().c_str());
    ASSERT_NE(nullptr, stream);
    fputs("text", stream);
    fclose(stream);
    EXPECT_EQ("precious", read_file(directory() + "/victim"));
    EXPECT_EQ("text", read_file(path()));
}

TEST_F(ScratchFile, ReplacesAFifo) {
    ASSERT_EQ(0, mkfifo(path().c_str(), 0666));
    FILE *stream = hbs_scratch_open(path().c_str());
    ASSERT_NE(nullptr, stream);
    fputs("text", stream);
    fclose(stream);
    EXPECT_EQ("text", read_file(path()));
}

TEST_F(ScratchFile, IsNobodyElses) {
    umask(0);
    write_file(path(), "made by somebody else");
    FILE *stream = hbs_scratch_open(path().c_str());
    ASSERT_NE(nullptr, stream);
    struct stat status = {};
    ASSERT_EQ(0, fstat(fileno(stream), &status));
    EXPECT_EQ(0600u, status.st_mode & 07777);
    fclose(stream);
}

TEST_F(ScratchFile, MakeIsSilent) {
    EXPECT_EQ(nullptr, hbs_scratch_make("/no/such/directory/x.tmp"));
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(ScratchFile, IsNullAndLoggedWhenItCannotBeCreated) {
    EXPECT_EQ(nullptr, hbs_scratch_open("/no/such/directory/x.tmp"));
    EXPECT_TRUE(logged("HOSTBASE: can't create /no/such/directory/x.tmp (error 2)"));
}

} // namespace scratch_file_test
