#include "common/toml/nesting.hpp"

#include <gtest/gtest.h>
#include <toml++/toml.h>

#include <algorithm>
#include <random>

namespace common {
namespace {

/// The depth that the scan finds: the least limit that the text does not break.
std::size_t depth(std::string_view text) {
    std::size_t limit = 0;
    while (find_deep_nesting(text, limit).line != 0)
        ++limit;
    return limit;
}

TEST(TomlNesting, TablesArraysAndDottedKeysCount) {
    EXPECT_EQ(depth(""), 0U);
    EXPECT_EQ(depth("a = 1"), 0U);
    EXPECT_EQ(depth("a = []"), 1U);
    EXPECT_EQ(depth("a = [[], [[]]]"), 3U);
    EXPECT_EQ(depth("a = {b = {c = 1}}"), 2U);
    EXPECT_EQ(depth("a.b.c = 1"), 2U);
    EXPECT_EQ(depth("a.b = {c.d = [1]}"), 4U);
    EXPECT_EQ(depth("[a]"), 1U);
    EXPECT_EQ(depth("[a.b.c]"), 3U);
    EXPECT_EQ(depth("[[a.b]]"), 2U);
    EXPECT_EQ(depth("[a.b]\nc.d = [{}]"), 5U);
}

TEST(TomlNesting, WhatIsClosedDoesNotCount) {
    EXPECT_EQ(depth("a = [[1], [2], [3]]\nb = [4]"), 2U);
    EXPECT_EQ(depth("a = {b.c = 1, d.e = 2, f = {g.h = 3}, i.j = 4}"), 3U);
    EXPECT_EQ(depth("a.b = 1\nc.d = 2\n"), 1U);
    EXPECT_EQ(depth("[a.b.c]\n[d]\ne = 1\n"), 3U);
    EXPECT_EQ(depth("[a.b.c]\n[d]\ne = [1]\n"), 3U);
    EXPECT_EQ(depth("a = [1,\n 2,\n [3]\n]\nb = 1"), 2U);
}

TEST(TomlNesting, DotsOfNumbersAreNoTables) {
    EXPECT_EQ(depth("a = 1.5"), 0U);
    EXPECT_EQ(depth("a = [1.5, 2.5, -1.0e3]"), 1U);
    EXPECT_EQ(depth("a = {b = 1.5, c = 2.5}"), 1U);
    EXPECT_EQ(depth("a = 07:32:00.999\nb = 1979-05-27T07:32:00.999"), 0U);
    EXPECT_EQ(depth("1.2 = 3.4"), 1U);
}

TEST(TomlNesting, StringsAndCommentsHoldNoBrackets) {
    EXPECT_EQ(depth("a = \"[[[{{{\" # [[[ {{{ a.b.c\nb = '[[[' # \" '\n"), 0U);
    EXPECT_EQ(depth("\"a.b.c\" = 1\n'd.e' = 2"), 0U);
    EXPECT_EQ(depth("[\"a.b\".'c.d]']"), 2U);
    EXPECT_EQ(depth("a = \"\\\"[[[\""), 0U);
    EXPECT_EQ(depth("a = \"\\\\\" # [\nb = [1]"), 1U);
    EXPECT_EQ(depth("a = '\\'\nb = [1]"), 1U);
    EXPECT_EQ(depth("a = \"\"\nb = ''\nc = [1]"), 1U);
    EXPECT_EQ(depth("# a \" quote\na = [\"#\", [1]] # ]\nb.c = [1]"), 2U);
}

TEST(TomlNesting, MultiLineStringsHoldNoBrackets) {
    EXPECT_EQ(depth("a = \"\"\"\n[[[\n\"[[\" \"\" [[\\\"\"\"[[[\n\"\"\"\nb = [1]"), 1U);
    EXPECT_EQ(depth("a = '''\n[[[ ' '' \\''' # [[\nb = [1]"), 1U);
    EXPECT_EQ(depth("a = \"\"\"\"\"\"\nb = [1]"), 1U);
    EXPECT_EQ(depth("a = ''''''\nb = [1]"), 1U);
}

TEST(TomlNesting, MultiLineStringsMayEndWithQuotesOfTheirOwn) {
    EXPECT_EQ(depth("a = [\"\"\"b\"\"\"\", [[1]]]"), 3U);
    EXPECT_EQ(depth("a = [\"\"\"b\"\"\"\"\", [[1]]]"), 3U);
    EXPECT_EQ(depth("a = ['''b'''', [[1]]]"), 3U);
    EXPECT_EQ(depth("a = ['''b''''', [[1]]]"), 3U);
}

TEST(TomlNesting, TextsThatDoNotParseAreScannedToo) {
    EXPECT_EQ(depth("]]]}}}"), 0U);
    EXPECT_EQ(depth("]]\na = [1]"), 1U);
    EXPECT_EQ(depth("a = [[[\nb = 1\n"), 3U);
    EXPECT_EQ(depth("a = \"never closed\nb = [1]"), 1U);
    EXPECT_EQ(depth("a = \"\"\"never closed\nb = [1]"), 0U);
    EXPECT_EQ(depth("a = \"\\"), 0U);
    EXPECT_EQ(depth("[a.b\nc = [1]"), 3U);
    EXPECT_EQ(depth(",,, = ,"), 0U);
}

TEST(TomlNesting, PlaceIsThatOfTheFirstTooDeepOne) {
    EXPECT_EQ(find_deep_nesting("a = 1\nä = [ [] ]\n", 1), (SourceLocation{2, 7}));
    EXPECT_EQ(find_deep_nesting("[a.b.c]\n", 2), (SourceLocation{1, 5}));
    EXPECT_EQ(find_deep_nesting("a.b.c = 1\n", 1), (SourceLocation{1, 4}));
    EXPECT_EQ(find_deep_nesting("a = \"\"\"\n\n\"\"\"\n\t[[a.b]]", 1), (SourceLocation{4, 5}));
    EXPECT_EQ(find_deep_nesting("\xEF\xBB\xBF[a.b]", 1), (SourceLocation{1, 3}));
    EXPECT_EQ(find_deep_nesting("\xEF\xBB\xBF[a.b]\nc = [[]]", 3), (SourceLocation{2, 6}));
    EXPECT_EQ(find_deep_nesting("a = [1]\n", 1), (SourceLocation{}));
}

/// The depth of a parsed tree; an array of tables counts as one.
std::size_t tree_depth(const toml::node& node) {
    std::size_t deepest = 0;
    if (const toml::table* table = node.as_table()) {
        for (const auto& [key, value] : *table)
            deepest = std::max(deepest, tree_depth(value) + (value.is_table() ? 1U : 0U));
    } else if (const toml::array* array = node.as_array()) {
        deepest = 1;
        for (const toml::node& value : *array)
            deepest = std::max(deepest, 1 + tree_depth(value) + (value.is_table() ? 1U : 0U));
    }
    return deepest;
}

/// Writes texts at random that parse, with every form that nests or hides brackets.
class Writer {
  public:
    explicit Writer(unsigned seed) : random_(seed) {}

    std::string text() {
        std::string all;
        for (int i = pick(3); i >= 0; --i)
            all += entry();
        for (int i = pick(3); i > 0; --i) {
            all += "[" + key() + "]" + ending();
            for (int j = pick(3); j > 0; --j)
                all += entry();
        }
        return all;
    }

  private:
    int pick(int n) { return static_cast<int>(random_() % static_cast<unsigned>(n)); }

    std::string ending() {
        static const char* const endings[] = {"\n", "\r\n", " # [[ {a.b.c \" '\n", "\t\n\n"};
        return endings[pick(4)];
    }

    std::string key() {
        std::string all;
        for (int i = pick(3); i >= 0; --i) {
            const std::string name = "k" + std::to_string(++names_);
            const std::string forms[] = {name, "\"" + name + ".[\\\"\"", "'" + name + ".{'"};
            all += forms[pick(3)] + (i > 0 ? (pick(2) != 0 ? "." : " . ") : "");
        }
        return all;
    }

    std::string entry() { return key() + " = " + value(0) + ending(); }

    std::string value(int level) {
        static const char* const leaves[] = {
            "1.5",        "'[.'",       "\"]\\\"{\"", "\"\"\"\n[.\"\n\"\"\"\"",
            "'''[{\n'''", "07:32:00.5", "\"\""};
        switch (level < 4 ? pick(4) : 0) {
            case 1: {
                std::string all = "[";
                for (int i = pick(3); i > 0; --i)
                    all += value(level + 1) + (pick(2) != 0 ? "," : " , # ]\n");
                return all + "]";
            }
            case 2: {
                std::string all = "{";
                for (int i = pick(3); i > 0; --i)
                    all += key() + "=" + value(level + 1) + (i > 1 ? ", " : " ");
                return all + "}";
            }
            default:
                return leaves[pick(7)];
        }
    }

    std::mt19937 random_;
    int names_ = 0;
};

TEST(TomlNesting, IsThatOfTheParsedTree) {
    for (unsigned seed = 0; seed < 3000; ++seed) {
        const std::string text = Writer(seed).text();
        toml::table parsed;
        ASSERT_NO_THROW(parsed = toml::parse(text)) << text;
        ASSERT_EQ(depth(text), tree_depth(parsed)) << "seed " << seed << ":\n" << text;
    }
}

}  // namespace
}  // namespace common
