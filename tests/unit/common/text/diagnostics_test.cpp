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

/// One mistake in a source, and all that is printed of it but the count at the end.
struct Quoted {
    const char* name;
    const char* source;
    SourceLocation place;
    const char* text;
    const char* help;
    const char* printed;
};

class QuotedTest : public testing::TestWithParam<Quoted> {};

TEST_P(QuotedTest, IsPrintedWithItsLineAndACaret) {
    Diagnostics diagnostics("f");
    diagnostics.set_source(GetParam().source);
    diagnostics.error(GetParam().place, GetParam().text, GetParam().help);
    EXPECT_EQ(printed(diagnostics), GetParam().printed + std::string("f: 1 error\n"));
}

INSTANTIATE_TEST_SUITE_P(
    Mistake, QuotedTest,
    testing::Values(
        Quoted{"with_help", "one\ntwo\n", {2, 3}, "t", "h", "f:2:3: error: t\ntwo\n  ^\nhelp: h\n"},
        Quoted{"of_the_whole_file", "one\n", {}, "all of it", "", "f: error: all of it\n"},
        Quoted{"caret_counts_code_points_and_keeps_tabs",
               "\tä\t☂x\r\n",
               {1, 5},
               "t",
               "",
               "f:1:5: error: t\n\tä\t☂x\n\t \t ^\n"},
        Quoted{"behind_the_line", "ab", {1, 9}, "t", "", "f:1:9: error: t\nab\n  ^\n"},
        Quoted{"before_the_line", "ab", {1, 0}, "t", "", "f:1:0: error: t\nab\n^\n"},
        Quoted{"behind_the_last_line", "ab", {2, 1}, "t", "", "f:2:1: error: t\n"},
        Quoted{"byte_order_mark_is_not_quoted",
               "\xEF\xBB\xBFxy",
               {1, 2},
               "t",
               "",
               "f:1:2: error: t\nxy\n ^\n"},
        Quoted{"control_characters_stay_in_the_file",
               "a\x1b[2Jb\x7f\t",
               {1, 1},
               "a\x1b[2J\nb\x7f",
               "c\r",
               "f:1:1: error: a\\x1b[2J\\nb\\u007f\na\\x1b[2Jb\\u007f\t\n^\nhelp: c\\r\n"},
        // An invalid byte is one column.
        Quoted{"caret_is_below_the_place_in_the_escaped_line",
               "\t\x1b[2J\xe2\x80\xae \xff x",
               {1, 8},
               "t",
               "",
               "f:1:8: error: t\n\t\\x1b[2J\\u202e \\xff x\n\t              ^\n"}),
    [](const auto& mistake) { return mistake.param.name; });

TEST(Diagnostics, ArePrintedOnceInFileOrderAndCounted) {
    Diagnostics diagnostics("f");
    EXPECT_EQ(printed(diagnostics), "");
    diagnostics.error({2, 3}, "late");
    diagnostics.warning({2, 1}, "early");
    diagnostics.error({1, 1}, "b");
    diagnostics.error({1, 1}, "a");
    diagnostics.error({1, 1}, "b", "help that comes too late");
    diagnostics.warning({1, 1}, "b");
    diagnostics.error({1, 2}, "b");
    diagnostics.error({}, "all of it");
    EXPECT_EQ(printed(diagnostics),
              "f: error: all of it\nf:1:1: error: b\nf:1:1: error: a\nf:1:1: warning: b\n"
              "f:1:2: error: b\nf:2:1: warning: early\nf:2:3: error: late\n"
              "f: 5 errors, 2 warnings\n");
    EXPECT_EQ(printed(diagnostics), "");
    diagnostics.error({1, 1}, "second");
    EXPECT_EQ(printed(diagnostics), "f:1:1: error: second\nf: 1 error\n");
    EXPECT_EQ(diagnostics.errors(), 6U);
    EXPECT_EQ(diagnostics.warnings(), 2U);
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

TEST(Diagnostics, NameOfTheFileCannotForgeALine) {
    Diagnostics diagnostics("f\nfenwa: ready\x1b[2J");
    diagnostics.error({1, 1}, "t");
    EXPECT_EQ(printed(diagnostics),
              "f\\nfenwa: ready\\x1b[2J:1:1: error: t\nf\\nfenwa: ready\\x1b[2J: 1 error\n");
}

TEST(Diagnostics, OfALongTextTheBeginningAndTheEndAreSaid) {
    Diagnostics diagnostics("f");
    diagnostics.error({}, "begin" + std::string(1000000, 'x') + "end", std::string(1000000, 'y'));
    const std::string text = printed(diagnostics);
    EXPECT_LT(text.size(), 2 * Diagnostics::max_text_length + 100);
    EXPECT_TRUE(text.starts_with("f: error: beginxxx")) << text.substr(0, 30);
    EXPECT_NE(text.find("xxxend\nhelp: yyy"), text.npos);
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
    for (std::uint32_t i = 1; i <= Diagnostics::max_kept + 5; ++i) {
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

TEST(DiagnosticsJsonTest, HoldsEachMistakeWholeAndOnce) {
    Diagnostics diagnostics("a b.toml");
    diagnostics.warning({2, 3}, "later \"quoted\"");
    diagnostics.error({1, 1}, "first", "do it");
    diagnostics.error({}, "all of it");
    const auto lines = [&diagnostics] {
        std::ostringstream out;
        diagnostics.print_json(out);
        return out.str();
    };
    EXPECT_EQ(lines(),
              R"({"file":"a b.toml","line":null,"column":null,"severity":"error",)"
              R"("text":"all of it","help":null})"
              "\n"
              R"({"file":"a b.toml","line":1,"column":1,"severity":"error","text":"first",)"
              R"("help":"do it"})"
              "\n"
              R"({"file":"a b.toml","line":2,"column":3,"severity":"warning",)"
              R"("text":"later \"quoted\"","help":null})"
              "\n");
    EXPECT_EQ(lines(), "");
    EXPECT_EQ(printed(diagnostics), "");
}

TEST(DiagnosticsJsonTest, CountsTheMistakesThatAreNotKept) {
    Diagnostics diagnostics("f");
    for (std::uint32_t i = 1; i <= Diagnostics::max_kept + 3; ++i)
        diagnostics.error({i, 1}, "e");
    std::ostringstream out;
    diagnostics.print_json(out);
    EXPECT_TRUE(out.str().ends_with(R"({"file":"f","line":null,"column":null,"severity":"error",)"
                                    R"("text":"3 errors more, which are not shown","help":null})"
                                    "\n"));
}

TEST(Diagnostics, MistakesOfAnotherFileComeFirstAndAreNotCounted) {
    Diagnostics diagnostics("f");
    diagnostics.error({1, 1}, "its own");
    diagnostics.other_file("g").warning({2, 1}, "of another file");
    diagnostics.other_file("g").warning({3, 1}, "of the same");
    EXPECT_EQ(diagnostics.warnings(), 0U);
    EXPECT_EQ(printed(diagnostics),
              "g:2:1: warning: of another file\ng:3:1: warning: of the same\ng: 2 warnings\n"
              "f:1:1: error: its own\nf: 1 error\n");
    EXPECT_EQ(printed(diagnostics), "");
    diagnostics.other_file("g").warning({4, 1}, "as JSON");
    std::ostringstream out;
    diagnostics.print_json(out);
    EXPECT_EQ(out.str(), R"({"file":"g","line":4,"column":1,"severity":"warning",)"
                         R"("text":"as JSON","help":null})"
                         "\n");
}

}  // namespace
}  // namespace common
