#include "common/toml/document.hpp"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <map>
#include <optional>
#include <sstream>
#include <string>

#include "common/process/exit_code.hpp"
#include "tests/support/temporary_folder.hpp"

namespace common {
namespace {

class TomlDocument : public testing::Test {
  protected:
    std::optional<toml::table> read(const std::string& text) {
        return read_toml(folder_.write("file.toml", text), diagnostics_);
    }

    test::TemporaryFolder folder_;
    Diagnostics diagnostics_{"file.toml"};
};

TEST_F(TomlDocument, EntriesComeInTheOrderOfTheFile) {
    const auto table = read("z = 1\na = 2\n[m]\nx = 1\n[b]\n[m.k]\n");
    ASSERT_TRUE(table);
    std::string order;
    for (const TomlEntry& entry : in_file_order(*table))
        order += entry.key + '@' + std::to_string(entry.location.line) + ' ';
    EXPECT_EQ(order, "z@1 a@2 m@3 b@5 ");
}

TEST_F(TomlDocument, EveryKindHasItsWord) {
    const auto table = read(
        "a={}\nb=[]\nc='x'\nd=1\ne=1.0\nf=true\ng=1979-05-27\nh=07:32:00\n"
        "i=1979-05-27T07:32:00Z\n");
    ASSERT_TRUE(table);
    std::string kinds;
    for (const TomlEntry& entry : in_file_order(*table))
        kinds.append(kind_of(*entry.value)).append("; ");
    EXPECT_EQ(kinds,
              "a table; an array; a string; an integer; a float; a boolean; a date; a time; "
              "a date-time; ");
}

TEST_F(TomlDocument, SyntaxErrorIsADiagnosticAtItsPlace) {
    EXPECT_FALSE(read("a = 1\nb = = 2\n"));
    ASSERT_EQ(diagnostics_.errors(), 1U);
    std::ostringstream out;
    diagnostics_.print(out, false);
    EXPECT_TRUE(out.str().starts_with("file.toml:2:5: error: ")) << out.str();
    EXPECT_TRUE(out.str().ends_with("\nb = = 2\n    ^\nfile.toml: 1 error\n")) << out.str();
}

TEST_F(TomlDocument, OfATableTwiceTheFirstIsNamedToo) {
    const std::map<std::string, std::string> firsts{
        {"[a]\n[b]\n[a]\n", "1:1"},
        {"\n  [ a . \"b.c\" ]\nx = 1\n[a.'b.c'] # again\n", "2:3"},
        {"[a]\r\n[a]\r\n", "1:1"},
        {"x = 1\na = {}\n[a]\n", "2:5"},
        {"a = []\n[[a]]\n", "1:5"},
        {"a = 5\n[a.b]\n", "1:5"},
        {"[[a]]\n[[a]]\n[a.b]\n[c]\n[a.b]\n", "3:1"},
        {"\xEF\xBB\xBF[a]\n[a]\n", "1:1"},
        {"[a]\n[a]\nno more = is = read\n", "1:1"}};
    for (const auto& [text, first] : firsts) {
        Diagnostics diagnostics("f");
        EXPECT_FALSE(parse_toml(text, diagnostics)) << text;
        std::ostringstream out;
        diagnostics.print(out, false);
        EXPECT_NE(out.str().find("\nhelp: the first one is at f:" + first + "\n"),
                  std::string::npos)
            << text << out.str();
    }
}

TEST_F(TomlDocument, OfAnotherMistakeNoFirstPlaceIsNamed) {
    for (const char* text : {"[a]\n[b\n", "[a]\n[a] b\n", "[a]\n[]\n", "a = [\n[1] 2\n",
                             "[a]\nb = [\n[a]\n", "[", "[a]\n= 1\n", "a = 1\na = 2\n"}) {
        Diagnostics diagnostics("f");
        EXPECT_FALSE(parse_toml(text, diagnostics)) << text;
        std::ostringstream out;
        diagnostics.print(out, false);
        EXPECT_EQ(out.str().find("help"), std::string::npos) << text << out.str();
    }
}

TEST_F(TomlDocument, MissingFileIsUnreadable) {
    try {
        static_cast<void>(read_toml((folder_.path() / "none").string(), diagnostics_));
        FAIL() << "nothing was thrown";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code(), ExitCode::unreadable);
    }
}

TEST_F(TomlDocument, FileThatCannotBeOpenedForLackOfDescriptorsIsNotUnreadable) {
    struct rlimit before {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const struct rlimit none { 0, before.rlim_max };
    const std::string file = folder_.write("there.toml", "a = 1\n");
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    std::optional<ExitCode> code;
    try {
        static_cast<void>(read_toml(file, diagnostics_));
    } catch (const Failure& failure) {
        code = failure.code();
    }
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(code, ExitCode::software);
}

TEST_F(TomlDocument, ZeroBytesAreReportedInKeysAndStringsHoweverDeep) {
    const auto table =
        read("a = \"x\\u0000y\"\n[t]\n\"k\\u0000\" = [1, [\"ok\", \"\\u0000\"]]\nz = \"0\"\n");
    ASSERT_TRUE(table);
    report_zero_bytes(*table, diagnostics_);
    std::ostringstream text;
    diagnostics_.print(text, false);
    EXPECT_EQ(text.str(),
              "file.toml:1:5: error: the string holds a zero byte\na = \"x\\u0000y\"\n    ^\n"
              "file.toml:3:1: error: the key holds a zero byte\n"
              "\"k\\u0000\" = [1, [\"ok\", \"\\u0000\"]]\n^\n"
              "file.toml:3:24: error: the string holds a zero byte\n"
              "\"k\\u0000\" = [1, [\"ok\", \"\\u0000\"]]\n                       ^\n"
              "file.toml: 3 errors\n");
}

/// "a.a.a", with so many parts.
std::string key_of(std::size_t parts, const std::string& part = "a", const std::string& dot = ".") {
    std::string key = part;
    while (--parts > 0)
        key += dot + part;
    return key;
}

TEST_F(TomlDocument, AKeyOfTooManyPartsIsAnErrorAtItsPlace) {
    const std::map<std::string, SourceLocation> places{
        {"ä = 1\n" + key_of(17) + " = 1\n", {2, 33}},
        {"[" + key_of(17) + "]\n", {1, 34}},
        {"a = {b = 1, " + key_of(17, "'x.=.y'") + " = 1}\n", {1, 147}},
        {key_of(17, "\"\\\\\"", " .\t") + " = 1\n", {1, 116}},
        {"a = {b = \"\"\"\n\"\"\", " + key_of(17) + " = 1}\n", {2, 38}},
        {key_of(17, "\"\\\"\"") + " = 1\n", {1, 84}},
    };
    for (const auto& [text, place] : places) {
        Diagnostics diagnostics("file.toml");
        SourceLocation found;
        diagnostics.listen([&](const auto& entry) { found = entry.location; });
        EXPECT_FALSE(parse_toml(text, diagnostics)) << text;
        EXPECT_EQ(diagnostics.sentences(common::Diagnostics::Severity::error),
                  std::vector<std::string>{"a key has more than 16 parts"})
            << text;
        EXPECT_EQ(found, place) << text << found.line << ':' << found.column;
    }
}

TEST_F(TomlDocument, DotsElsewhereAreNoKey) {
    const std::string numbers = "[" + key_of(1000, "1.5", ", ") + "]";
    for (const std::string& text : {
             key_of(16) + " = 1\n[" + key_of(16, "b") + "]\n",
             "a = " + numbers + " # 1.2.3, 4.5 ... and so on ...\n",
             "a = [" + key_of(100, "\"lib.so.1\"", ", ") + "]\n",
             "a = \"" + key_of(100, "A sentence.", " ") + "\"\n",
         })
        EXPECT_TRUE(read(text)) << text.substr(0, 100);
}

/// toml++ counts values that are nested, and destroys its tree recursively.
TEST_F(TomlDocument, WhateverIsNestedIsReadOrRefused) {
    const auto nested = [](std::size_t depth, const std::string& open, const std::string& close) {
        return key_of(depth, open, "") + (open.ends_with('[') ? "" : "1") +
               key_of(depth, close, "");
    };
    const std::string key = key_of(16) + " = ";
    EXPECT_TRUE(read("x = " + nested(200, "[", "]") + "\n"));
    EXPECT_TRUE(read("x = " + nested(100, "[{" + key, "}]") + "\n"));
    for (const std::string& text : {
             nested(500'000, "[", "]"),
             nested(100'000, "{x = ", "}"),
             nested(20'000, "[{" + key, "}]"),
             key_of(500'000) + " = 1\n=",
             key_of(500'000, "''"),
             std::string(1'000'000, '.'),
             std::string(1'000'000, '"'),
             std::string(1'000'000, '['),
         }) {
        EXPECT_FALSE(read("x = " + text)) << text.substr(0, 100);
        EXPECT_FALSE(read(text)) << text.substr(0, 100);
        EXPECT_NE(diagnostics_.errors(), 0U);
    }
}

}  // namespace
}  // namespace common
