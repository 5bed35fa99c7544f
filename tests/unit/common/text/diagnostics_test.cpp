#include "common/text/diagnostics.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace common {
namespace {

std::string printed(Diagnostics& diagnostics, bool color = false) {
    std::ostringstream out;
    diagnostics.print(out, color);
    return out.str();
}

TEST(Diagnostics, NothingIsPrintedWhereNothingIsWrong) {
    Diagnostics diagnostics("file");
    diagnostics.set_source("text\n");
    EXPECT_EQ(printed(diagnostics), "");
    EXPECT_EQ(diagnostics.errors(), 0U);
    EXPECT_EQ(diagnostics.warnings(), 0U);
}

TEST(Diagnostics, StandInFileOrderWithTheirLines) {
    Diagnostics diagnostics("file");
    diagnostics.set_source("one\ntwo\nthree\n");
    diagnostics.error({2, 3}, "late");
    diagnostics.warning({2, 1}, "early", "some help");
    diagnostics.error({1, 1}, "first");
    diagnostics.error({}, "all of it");
    EXPECT_EQ(printed(diagnostics),
              "file: error: all of it\nfile:1:1: error: first\none\n^\n"
              "file:2:1: warning: early\ntwo\n^\nhelp: some help\nfile:2:3: error: late\ntwo\n  ^\n"
              "file: 3 errors, 1 warning\n");
    EXPECT_EQ(diagnostics.errors(), 3U);
    EXPECT_EQ(diagnostics.warnings(), 1U);
}

TEST(Diagnostics, AtTheSamePlaceStandInTheOrderInWhichTheyWereFound) {
    Diagnostics diagnostics("file");
    diagnostics.error({1, 1}, "b");
    diagnostics.error({1, 1}, "a");
    EXPECT_EQ(printed(diagnostics), "file:1:1: error: b\nfile:1:1: error: a\nfile: 2 errors\n");
}

TEST(Diagnostics, SameMistakeIsSaidOnce) {
    Diagnostics diagnostics("file");
    diagnostics.error({1, 1}, "text");
    diagnostics.error({1, 1}, "text", "help that comes too late");
    diagnostics.warning({1, 1}, "text");
    diagnostics.error({1, 2}, "text");
    EXPECT_EQ(printed(diagnostics),
              "file:1:1: error: text\nfile:1:1: warning: text\nfile:1:2: error: text\n"
              "file: 2 errors, 1 warning\n");
}

TEST(Diagnostics, EachIsPrintedOnce) {
    Diagnostics diagnostics("file");
    diagnostics.warning({1, 1}, "first");
    EXPECT_EQ(printed(diagnostics), "file:1:1: warning: first\nfile: 1 warning\n");
    EXPECT_EQ(printed(diagnostics), "");
    diagnostics.error({1, 1}, "second");
    EXPECT_EQ(printed(diagnostics), "file:1:1: error: second\nfile: 1 error\n");
    EXPECT_EQ(diagnostics.warnings(), 1U);
}

TEST(Diagnostics, CaretCountsCodePointsAndKeepsTabs) {
    Diagnostics diagnostics("file");
    diagnostics.set_source("\tä\t☂x\r\n");
    diagnostics.error({1, 5}, "text");
    EXPECT_EQ(printed(diagnostics), "file:1:5: error: text\n\tä\t☂x\n\t \t ^\nfile: 1 error\n");
}

TEST(Diagnostics, PlaceBehindTheLineOrTheFileIsHarmless) {
    Diagnostics diagnostics("file");
    diagnostics.set_source("ab");
    diagnostics.error({1, 9}, "behind the line");
    diagnostics.error({1, 0}, "before the line");
    diagnostics.error({2, 1}, "behind the file");
    EXPECT_EQ(printed(diagnostics),
              "file:1:0: error: before the line\nab\n^\nfile:1:9: error: behind the line\nab\n  ^\n"
              "file:2:1: error: behind the file\nfile: 3 errors\n");
}

TEST(Diagnostics, OfALongLineThePartAroundThePlaceIsQuoted) {
    std::string line;
    for (int i = 0; i < 500; ++i)
        line += "é";
    const auto quoted = [&line](std::uint32_t column) {
        Diagnostics diagnostics("f");
        diagnostics.set_source(line);
        diagnostics.error({1, column}, "t");
        const std::string text = printed(diagnostics);
        const std::size_t begin = text.find('\n') + 1;
        const std::size_t end = text.find('\n', begin);
        const std::string caret = text.substr(end + 1, text.find('\n', end + 1) - end - 1);
        // In code points: what is cut off, what is quoted before the caret, and behind it.
        std::string shape;
        std::size_t at = 0;
        for (std::size_t i = begin; i < end; ++i) {
            if ((static_cast<unsigned char>(text[i]) & 0xC0U) == 0x80U)
                continue;
            shape += at++ == caret.size() - 1 ? '^' : text[i] == '\xC3' ? 'e' : '.';
        }
        return shape;
    };
    const auto e = [](std::size_t count) { return std::string(count, 'e'); };
    EXPECT_EQ(quoted(1), "^" + e(59) + ".");
    EXPECT_EQ(quoted(101), e(100) + "^" + e(59) + ".");
    EXPECT_EQ(quoted(102), "." + e(100) + "^" + e(59) + ".");
    EXPECT_EQ(quoted(440), "." + e(100) + "^" + e(59) + ".");
    EXPECT_EQ(quoted(441), "." + e(100) + "^" + e(59));
    EXPECT_EQ(quoted(500), "." + e(100) + "^");
}

TEST(Diagnostics, LineThatIsNotLongIsQuotedWhole) {
    const std::string line(160, 'x');
    Diagnostics diagnostics("f");
    diagnostics.set_source(line);
    diagnostics.error({1, 160}, "t");
    EXPECT_EQ(printed(diagnostics),
              "f:1:160: error: t\n" + line + "\n" + std::string(159, ' ') + "^\nf: 1 error\n");
}

TEST(Diagnostics, ByteOrderMarkIsNotQuoted) {
    Diagnostics diagnostics("f");
    diagnostics.set_source("\xEF\xBB\xBFxy");
    diagnostics.error({1, 2}, "t");
    EXPECT_EQ(printed(diagnostics), "f:1:2: error: t\nxy\n ^\nf: 1 error\n");
}

TEST(Diagnostics, ControlCharactersStayInTheFile) {
    Diagnostics diagnostics("f");
    diagnostics.set_source("a\x1b[2Jb\x7f\t");
    diagnostics.error({1, 1}, "a\x1b[2J\nb\x7f", "c\r");
    EXPECT_EQ(
        printed(diagnostics),
        "f:1:1: error: a\\x1b[2J\\nb\\u007f\na\\x1b[2Jb\\u007f\t\n^\nhelp: c\\r\nf: 1 error\n");
}

TEST(Diagnostics, CaretStandsBelowThePlaceWhereTheLineIsMadeSafe) {
    Diagnostics diagnostics("f");
    diagnostics.set_source("\t\x1b[2J\xe2\x80\xae \xff x");
    diagnostics.error({1, 8}, "t");  // a byte that is no text counts as one column
    EXPECT_EQ(printed(diagnostics),
              "f:1:8: error: t\n\t\\x1b[2J\\u202e \\xff x\n"
              "\t              ^\nf: 1 error\n");
}

TEST(Diagnostics, NameOfTheFileCannotForgeALine) {
    Diagnostics diagnostics("f\nfenwa: ready\x1b[2J");
    diagnostics.error({1, 1}, "t");
    EXPECT_EQ(printed(diagnostics),
              "f\\nfenwa: ready\\x1b[2J:1:1: error: t\nf\\nfenwa: ready\\x1b[2J: 1 error\n");
}

TEST(Diagnostics, OfALongTextTheBeginningAndTheEndAreSaid) {
    Diagnostics diagnostics("f");
    diagnostics.error({}, "begin" + std::string(1000000, 'x') + "end");
    const std::string text = printed(diagnostics);
    EXPECT_LT(text.size(), 2100U);
    EXPECT_TRUE(text.starts_with("f: error: beginxxx")) << text.substr(0, 30);
    EXPECT_TRUE(text.ends_with("xxxend\nf: 1 error\n"));
}

TEST(Diagnostics, ColoursAreAroundTheSameText) {
    Diagnostics diagnostics("f");
    diagnostics.set_source("ab\n");
    diagnostics.error({1, 2}, "t", "h");
    diagnostics.warning({1, 2}, "w");
    EXPECT_EQ(printed(diagnostics, true),
              "\x1b[1mf:1:2: \x1b[0m\x1b[1;31merror: \x1b[0mt\nab\n \x1b[1;32m^\x1b[0m\n"
              "\x1b[1;36mhelp: \x1b[0mh\n"
              "\x1b[1mf:1:2: \x1b[0m\x1b[1;33mwarning: \x1b[0mw\nab\n \x1b[1;32m^\x1b[0m\n"
              "f: 1 error, 1 warning\n");
}

TEST(Diagnostics, PlacesAreLocatedInTheFile) {
    const Diagnostics diagnostics("some/file.toml");
    EXPECT_EQ(diagnostics.locate({7, 3}), "some/file.toml:7:3");
    EXPECT_EQ(diagnostics.locate({}), "some/file.toml");
    EXPECT_EQ(diagnostics.file(), "some/file.toml");
}

TEST(Diagnostics, OfVeryManyTheFirstAreKeptAndTheOthersCounted) {
    Diagnostics diagnostics("f");
    for (std::uint32_t i = 1; i <= Diagnostics::most_kept + 5; ++i) {
        diagnostics.warning({i, 1}, "w");
        if (i > 3)
            diagnostics.error({i, 2}, "e");
    }
    EXPECT_EQ(diagnostics.errors(), 1002U);
    EXPECT_EQ(diagnostics.warnings(), 1005U);
    EXPECT_EQ(diagnostics.not_kept(Diagnostics::Severity::error), 2U);
    const std::string text = printed(diagnostics);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2002);
    EXPECT_TRUE(
        text.ends_with("\nf:1003:2: error: e\n"
                       "f: 2 errors, 5 warnings more, which are not shown\n"
                       "f: 1002 errors, 1005 warnings\n"))
        << text.substr(text.size() - 200);
    EXPECT_EQ(printed(diagnostics), "");
    diagnostics.error({9, 9}, "e");
    EXPECT_EQ(printed(diagnostics), "f: 1 error more, which are not shown\nf: 1 error\n");
    diagnostics.count_more(Diagnostics::Severity::warning, 7);
    EXPECT_EQ(diagnostics.warnings(), 1012U);
}

TEST(Diagnostics, VeryLongTextIsShortened) {
    Diagnostics diagnostics("f");
    diagnostics.error({1, 1}, std::string(1'000'000, 'x'), std::string(1'000'000, 'y'));
    EXPECT_LT(printed(diagnostics).size(), 2 * Diagnostics::longest_text + 100);
}

TEST(Diagnostics, AreToldToAListenerOnce) {
    Diagnostics diagnostics("f");
    diagnostics.error({1, 1}, "before");
    std::vector<std::string> told;
    diagnostics.listen([&told](const Diagnostics::Entry& entry) { told.push_back(entry.text); });
    diagnostics.error({1, 1}, "before");
    diagnostics.warning({2, 1}, "after");
    diagnostics.warning({2, 1}, "after");
    EXPECT_EQ(told, std::vector<std::string>{"after"});
}

TEST(Diagnostics, NounsAreCounted) {
    EXPECT_EQ(counted(0, "error"), "0 errors");
    EXPECT_EQ(counted(1, "error"), "1 error");
    EXPECT_EQ(counted(2, "error"), "2 errors");
}

}  // namespace
}  // namespace common
