// Files opened by name in places where others may put something in the way.
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/plain_file.h"
#include "support/gateway.h"

namespace plain_file_test {

constexpr int EVERY_USE[] = {O_RDONLY, O_RDWR, O_WRONLY | O_CREAT, O_WRONLY | O_CREAT | O_TRUNC,
                             O_RDWR | O_CREAT | O_APPEND};

class PlainFile : public GatewayTest {
  protected:
    void SetUp() override {
        GatewayTest::SetUp();
        path_ = directory() + "/file";
    }

    // The reason for which it is not opened; 0 when it is.
    int refusal(int flags, const std::string &path) const {
        const int descriptor = hbs_plain_open(path.c_str(), flags, 0644);
        const int reason = descriptor == -1 ? errno : 0;
        if (descriptor != -1)
            close(descriptor);
        return reason;
    }

    std::string path_;
};

TEST_F(PlainFile, IsOpenedWithTheFlagsAndNotInherited) {
    write_file(path_, "text");
    const int descriptor = hbs_plain_open(path_.c_str(), O_RDWR | O_APPEND, 0);
    ASSERT_NE(-1, descriptor);
    EXPECT_NE(0, fcntl(descriptor, F_GETFD) & FD_CLOEXEC);
    EXPECT_EQ(5, write(descriptor, " more", 5));
    close(descriptor);
    EXPECT_EQ("text more", read_file(path_));
}

TEST_F(PlainFile, ThatIsMissing_IsMadeOnlyWhenAsked) {
    EXPECT_EQ(ENOENT, refusal(O_RDWR, path_));
    umask(0);
    EXPECT_EQ(0, refusal(O_WRONLY | O_CREAT, path_));
    struct stat status = {};
    ASSERT_EQ(0, stat(path_.c_str(), &status));
    EXPECT_EQ(0644u, status.st_mode & 07777);
    EXPECT_EQ(EEXIST, refusal(O_WRONLY | O_CREAT | O_EXCL, path_));
    EXPECT_EQ(ENOENT, refusal(O_WRONLY | O_CREAT, directory() + "/missing/file"));
}

TEST_F(PlainFile, IsEmptiedWhenAsked) {
    write_file(path_, "text");
    EXPECT_EQ(0, refusal(O_WRONLY | O_CREAT, path_));
    EXPECT_EQ("text", read_file(path_));
    EXPECT_EQ(0, refusal(O_WRONLY | O_CREAT | O_TRUNC, path_));
    EXPECT_EQ("", read_file(path_));
}

// Nobody is at the other end: an open that waits would never come back.
TEST_F(PlainFile, Fifo_IsRefusedAtOnce) {
    ASSERT_EQ(0, mkfifo(path_.c_str(), 0666));
    for (const int flags : EVERY_USE)
        EXPECT_NE(0, refusal(flags, path_)) << flags;
    EXPECT_EQ(EINVAL, refusal(O_RDWR, path_));
}

TEST_F(PlainFile, Link_IsRefusedAndItsTargetStaysAsItIs) {
    write_file(directory() + "/victim", "precious");
    ASSERT_EQ(0, symlink((directory() + "/victim").c_str(), path_.c_str()));
    for (const int flags : EVERY_USE)
        EXPECT_EQ(ELOOP, refusal(flags, path_)) << flags;
    EXPECT_EQ("precious", read_file(directory() + "/victim"));
}

TEST_F(PlainFile, LinkToNowhere_MakesNothing) {
    ASSERT_EQ(0, symlink((directory() + "/target").c_str(), path_.c_str()));
    EXPECT_EQ(ELOOP, refusal(O_WRONLY | O_CREAT | O_TRUNC, path_));
    EXPECT_FALSE(file_exists(directory() + "/target"));
}

TEST_F(PlainFile, DirectoryAndDevice_AreRefused) {
    for (const int flags : EVERY_USE) {
        EXPECT_EQ(EISDIR, refusal(flags, directory())) << flags;
        EXPECT_EQ(EINVAL, refusal(flags, "/dev/null")) << flags;
    }
}

TEST_F(PlainFile, Stream_ReadsAndWrites) {
    write_file(path_, "text");
    FILE *stream = hbs_plain_stream(path_.c_str(), "r+");
    ASSERT_NE(nullptr, stream);
    EXPECT_EQ('t', fgetc(stream));
    rewind(stream);
    EXPECT_EQ('T', fputc('T', stream));
    fclose(stream);
    EXPECT_EQ("Text", read_file(path_));
    EXPECT_EQ(nullptr, hbs_plain_stream((directory() + "/missing").c_str(), "r"));
}

} // namespace plain_file_test
