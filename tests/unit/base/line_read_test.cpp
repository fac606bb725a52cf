// Lines of other programs' files, whatever is in them.
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "base/line_read.h"

namespace line_read_test {

std::vector<std::string> lines_of(const std::string &text, size_t size = 16) {
    FILE *stream = tmpfile();
    EXPECT_EQ(text.size(), fwrite(text.data(), 1, text.size(), stream));
    rewind(stream);
    std::vector<std::string> lines;
    std::string line(size, '#');
    while (hbs_line_read(stream, line.data(), size))
        lines.emplace_back(line.c_str());
    fclose(stream);
    return lines;
}

using Lines = std::vector<std::string>;

TEST(LineRead, GivesLinesWithoutTheirNewlines) {
    EXPECT_EQ((Lines{"one", "", "two"}), lines_of("one\n\ntwo\n"));
}

TEST(LineRead, GivesALastLineWithoutANewline) {
    EXPECT_EQ((Lines{"one", "two"}), lines_of("one\ntwo"));
}

TEST(LineRead, OfAnEmptyFileGivesNothing) {
    EXPECT_EQ(Lines{}, lines_of(""));
}

TEST(LineRead, TakesALineThatJustFits) {
    EXPECT_EQ((Lines{std::string(15, 'x'), "after"}), lines_of(std::string(15, 'x') + "\nafter\n"));
}

TEST(LineRead, SkipsALineThatDoesNotFitWhole) {
    EXPECT_EQ((Lines{"after"}), lines_of(std::string(16, 'x') + "\nafter\n"));
    EXPECT_EQ((Lines{"after"}), lines_of(std::string(1 << 20, 'x') + " tail\nafter\n"));
    EXPECT_EQ(Lines{}, lines_of(std::string(40, 'x')));
}

TEST(LineRead, SkipsALineWithANulByte) {
    EXPECT_EQ((Lines{"before", "after"}), lines_of(std::string("before\nin\0side\nafter\n", 20)));
    EXPECT_EQ((Lines{"before"}), lines_of(std::string("before\nlast\0", 12)));
}

} // namespace line_read_test
