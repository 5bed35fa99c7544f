#include <gtest/gtest.h>

#include <sstream>

#include "common/toml/document.hpp"

namespace common {
namespace {

const char* const text =
    "word = 'x'\ncount = 3\nratio = 0.5\ntruth = true\nlist = ['a', 'b']\nmixed = ['a', 1]\n"
    "inner = {}\n";

class TableReaderTest : public testing::Test {
  protected:
    TableReaderTest() : table_(toml::parse(text)), reader_(table_, "[thing]", diagnostics_) {}

    std::string said() {
        std::ostringstream out;
        diagnostics_.print(out, false);
        return out.str();
    }

    toml::table table_;
    Diagnostics diagnostics_{"f"};
    TableReader reader_;
};

TEST_F(TableReaderTest, GivesValuesOfTheRightKind) {
    EXPECT_EQ(reader_.string("word"), "x");
    EXPECT_EQ(reader_.integer("count"), 3);
    EXPECT_EQ(reader_.number("ratio"), 0.5);
    EXPECT_EQ(reader_.number("count"), 3.0);
    EXPECT_EQ(reader_.boolean("truth"), true);
    EXPECT_EQ(reader_.strings("list"), (std::vector<std::string>{"a", "b"}));
    EXPECT_NE(reader_.array("mixed"), nullptr);
    EXPECT_NE(reader_.table("inner"), nullptr);
    EXPECT_NE(reader_.any("word"), nullptr);
    reader_.report_unknown_keys();
    EXPECT_EQ(said(), "");
}

TEST_F(TableReaderTest, GivesNothingWhereThereIsNothing) {
    EXPECT_FALSE(reader_.string("s"));
    EXPECT_FALSE(reader_.integer("s"));
    EXPECT_FALSE(reader_.number("s"));
    EXPECT_FALSE(reader_.boolean("s"));
    EXPECT_FALSE(reader_.strings("s"));
    EXPECT_EQ(reader_.array("s"), nullptr);
    EXPECT_EQ(reader_.table("s"), nullptr);
    EXPECT_EQ(reader_.any("s"), nullptr);
    EXPECT_EQ(said(), "");
}

TEST_F(TableReaderTest, SaysWhatIsOfAnotherKind) {
    EXPECT_FALSE(reader_.string("count"));
    EXPECT_FALSE(reader_.integer("ratio"));
    EXPECT_FALSE(reader_.number("truth"));
    EXPECT_FALSE(reader_.boolean("word"));
    EXPECT_FALSE(reader_.strings("inner"));
    EXPECT_EQ(reader_.array("word"), nullptr);
    EXPECT_EQ(reader_.table("list"), nullptr);
    EXPECT_EQ(reader_.strings("mixed"), std::vector<std::string>{"a"});
    EXPECT_EQ(said(),
              "f:1:8: error: 'word' of [thing] must be a boolean, not a string\n"
              "f:1:8: error: 'word' of [thing] must be an array, not a string\n"
              "f:2:9: error: 'count' of [thing] must be a string, not an integer\n"
              "f:3:9: error: 'ratio' of [thing] must be an integer, not a float\n"
              "f:4:9: error: 'truth' of [thing] must be a number, not a boolean\n"
              "f:5:8: error: 'list' of [thing] must be a table, not an array\n"
              "f:6:15: error: 'mixed' of [thing] must be an array of strings, not an integer\n"
              "f:7:9: error: 'inner' of [thing] must be an array, not a table\n"
              "f: 8 errors\n");
}

TEST_F(TableReaderTest, ReportsKeysThatNobodyAskedForWithTheNearest) {
    static_cast<void>(reader_.string("words"));
    static_cast<void>(reader_.integer("count"));
    static_cast<void>(reader_.any("mixed"));
    for (const char* key : {"ratio", "truth", "list"})
        static_cast<void>(reader_.any(key));
    reader_.report_unknown_keys();
    EXPECT_EQ(said(),
              "f:1:1: error: unknown key 'word' in [thing]\nhelp: did you mean 'words'?\n"
              "f:7:1: error: unknown key 'inner' in [thing]\nf: 2 errors\n");
}

TEST_F(TableReaderTest, MissingKeyIsSaidAtTheTable) {
    reader_.missing("name");
    EXPECT_EQ(said(), "f:1:1: error: [thing] has no 'name'\nf: 1 error\n");
}

TEST_F(TableReaderTest, KeysHaveTheirPlaceOrTheTables) {
    EXPECT_EQ(reader_.location("count"), (SourceLocation{2, 9}));
    EXPECT_EQ(reader_.location("absent"), (SourceLocation{1, 1}));
    EXPECT_EQ(reader_.location(), (SourceLocation{1, 1}));
}

}  // namespace
}  // namespace common
