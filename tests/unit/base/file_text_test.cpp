#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "base/file_text.h"
#include "support/gateway.h"

namespace file_text_test {

constexpr const char *PATH = "/var/tmp/file_text";

class FileText : public GatewayTest {
  protected:
    void TearDown() override {
        (void)unlink(PATH);
        (void)rmdir(PATH);
        GatewayTest::TearDown();
    }

    static std::vector<std::string> lines_of(const std::string &content) {
        write_file(PATH, content);
        hbs_file_text text;
        EXPECT_EQ(hbs_file_read::done, hbs_file_text_read(PATH, SIZE_MAX - 1, &text));
        std::vector<std::string> lines;
        while (char *line = hbs_file_text_line(&text))
            lines.emplace_back(line);
        EXPECT_EQ(nullptr, hbs_file_text_line(&text)) << "the end stays the end";
        EXPECT_EQ(content.size(), text.length);
        return lines;
    }
};

TEST_F(FileText, Lines_ComeWithTheirNewlines) {
    EXPECT_EQ((std::vector<std::string>{"a\n", "\n", "bc"}), lines_of("a\n\nbc"));
    EXPECT_EQ((std::vector<std::string>{"a\n"}), lines_of("a\n"));
    EXPECT_EQ((std::vector<std::string>{}), lines_of(""));
}

TEST_F(FileText, ALine_MayBeChangedByItsReader) {
    write_file(PATH, "one\ntwo\n");
    hbs_file_text text;
    ASSERT_EQ(hbs_file_read::done, hbs_file_text_read(PATH, SIZE_MAX - 1, &text));
    char *line = hbs_file_text_line(&text);
    line[3] = '\0';
    EXPECT_STREQ("two\n", hbs_file_text_line(&text));
}

TEST_F(FileText, MoreThanTheMost_IsNotRead) {
    write_file(PATH, "abcdef");
    hbs_file_text text;
    ASSERT_EQ(hbs_file_read::done, hbs_file_text_read(PATH, 4, &text));
    EXPECT_STREQ("abcd", text.data);
}

TEST_F(FileText, WhatIsNoPlainFile_CountsAsMissing) {
    hbs_file_text none;
    EXPECT_EQ(hbs_file_read::missing, hbs_file_text_read(PATH, 4, &none));
    ASSERT_EQ(0, mkdir(PATH, 0700));
    hbs_file_text directory;
    EXPECT_EQ(hbs_file_read::missing, hbs_file_text_read(PATH, 4, &directory));
    EXPECT_EQ(nullptr, hbs_file_text_line(&directory));
}

TEST_F(FileText, AFileThatCannotBeOpened_IsNotMissing) {
    write_file(PATH, "text");
    rlimit old{};
    ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &old));
    const rlimit none = {0, old.rlim_max};
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
    hbs_file_text text;
    const hbs_file_read result = hbs_file_text_read(PATH, 4, &text);
    ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &old));
    EXPECT_EQ(hbs_file_read::failed, result);
    EXPECT_EQ(nullptr, text.data);
}

} // namespace file_text_test
