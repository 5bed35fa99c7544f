
#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/host_test.hpp"
#include "tests/support/json_printing.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

/// Settings of a running host's blocks changed with `fenwa set`, and over the bus.
class Set : public HostTest {
  protected:
    void start_settled(const std::string& settings = {}, const std::string& name = "a") {
        start(block(name, "Settled", settings), {"--control"});
    }

    static Ended set(const Words& words) { return fenwa(Words{"set", "--bus", bus()} + words); }

    void expect_set(const Words& words) {
        const Ended ended = set(words);
        expect_end(ended);
        EXPECT_EQ(ended.out, "");
        EXPECT_TRUE(host().wait_for_error_text("fenwa: new settings for '" + words.front() +
                                               "', set over the bus"));
    }

    static void expect_refused(const Words& words, const std::string& sentence, int code = 2) {
        const Ended ended = set(words);
        expect_end(ended, code, "fenwa: " + sentence + "\n");
        EXPECT_EQ(ended.out, "");
    }

    /// The log lines of changes once a block has run. The loop decides how often it runs in
    /// between.
    std::string changes() {
        EXPECT_TRUE(host().wait_for_text(": run"));
        return Pattern(R"(\ba: run\n)").replace(log(), "");
    }
    std::string log() {
        const Ended ended = host().terminate();
        EXPECT_EQ(ended.code, 0);
        return messages(ended.out);
    }
};

/// The log lines of the block 'a' for a change.
std::string twice(const std::string& before, const std::string& after) {
    return "a: " + before + " -> " + after + "\na: " + after + " -> " + after + "\n";
}

TEST_F(Set, TellsTheBlockAsAReloadDoes) {
    start(block("a", "Settled", "note = \"x\"") + block("b", "Settled"), {"--control"});
    expect_set({"a", "level=2.5", "note=main street"});
    ASSERT_TRUE(host().wait_for_text("a: run"));
    expect_set({"a", "level=3"});
    // A key that the block reads only at times.
    expect_set({"a", "hidden=9"});
    EXPECT_EQ(changes(), twice("1 x 7", "2.5 main street 7") +
                             twice("2.5 main street 7", "3 main street 7") +
                             twice("3 main street 7", "3 main street 9"));
}

TEST_F(Set, IsNotKeptFromItByAMistakeInTheFile) {
    start_settled("noet = \"x\"");
    expect_set({"a", "level=2"});
    EXPECT_EQ(set({"a", "noet=y"}).code, 2);
    EXPECT_EQ(changes(), twice("1 none 7", "2 none 7"));
}

TEST_F(Set, OfWhatABlockHasAlreadyTellsNobody) {
    start_settled("level = 2.0");
    expect_end(set({"a", "level=2.0"}));
    EXPECT_EQ(log(), "");
    EXPECT_EQ(host().err(), "");
}

TEST_F(Set, WarnsOfAValueThatIsOutOfRange) {
    start_settled();
    const Ended ended = set({"a", "hidden=-9"});
    expect_end(ended, 0, "fenwa: block 'a' (Settled): 'hidden' should be 0 to 1000, not -9\n");
    EXPECT_EQ(changes(), twice("1 none 7", "1 none -9"));
}

TEST_F(Set, ReadsValuesAsAGraphFileDoes) {
    start_settled();
    expect_set({"a", "note=\"a \\\"b\\\"\"", "level=1_000"});
    expect_set({"a", "note='12'"});
    expect_set({"a", "note=[\"one\"]", "level=inf"});
    expect_set({"a", "note="});
    expect_set({"a", "note=k=v, [x"});
    expect_set({"a", "note=2020-01-01"});
    expect_set({"a", "note=two\nhidden = 5"});
    EXPECT_EQ(changes(),
              twice("1 none 7", "1000 a \"b\" 7") + twice("1000 a \"b\" 7", "1000 12 7") +
                  twice("1000 12 7", "inf one 7") + twice("inf one 7", "inf  7") +
                  twice("inf  7", "inf k=v, [x 7") + twice("inf k=v, [x 7", "inf 2020-01-01 7") +
                  twice("inf 2020-01-01 7", "inf two\nhidden = 5 7"));
}

TEST_F(Set, ShowsInTheDescriptionAlsoTextThatDBusDoesNotCarry) {
    start_settled("note = \"x\\ufffe\\u00e9\"");
    const ControlClient client(bus());
    EXPECT_EQ(
        client.call("Reconfigure", "sa{sv}", "a", 3, "level", "i", 4, "note", "as", 2, "p", "q",
                    "hidden", "y", 8),
        "WrongSetting: block 'a' (Settled): the key 'note' must be a string, not an array of 2 "
        "strings; no block can read an array, except one of a single string");
    EXPECT_EQ(client.call("Reconfigure", "sa{sv}", "a", 2, "level", "i", 4, "hidden", "t",
                          std::uint64_t{8}),
              "ok");
    const std::string described = client.describe();
    EXPECT_NE(described.find(R"("note":"x\ufffe\u00e9")"), described.npos) << described;
    const auto settings =
        common::parse_json(described, "the text").at("blocks").at(0).at("settings");
    EXPECT_EQ(settings.at("hidden"), 8);
    EXPECT_EQ(settings.at("level"), 4);
}

TEST_F(Set, IsTakenBackByAReload) {
    start_settled("level = 2");
    expect_set({"a", "level=5"});
    EXPECT_EQ(reload(), "fenwa: graph.toml: reloaded; new settings for 'a'\n");
    EXPECT_EQ(lines_with(log(), "a: 5 none 7 -> 2"), "a: 5 none 7 -> 2 none 7\n");
}

TEST_F(Set, RefusesWhatIsWrongWithASentenceAndChangesNothing) {
    start_settled("", "alpha");
    const std::string the_key = "block 'alpha' (Settled): the key ";
    expect_refused({"alhpa", "level=2"}, "no block 'alhpa' in the graph; did you mean 'alpha'?");
    expect_refused({"alpha", "lvel=2"},
                   "Settled does not read the key 'lvel'; did you mean 'level'?");
    expect_refused({"alpha", "level=high"},
                   the_key + "'level' must be a double, not the string \"high\"");
    expect_refused({"alpha", "hidden=x"},
                   the_key + "'hidden' must be an int, not the string \"x\"");
    expect_refused({"alpha", "level=2", "note=5"},
                   the_key + "'note' must be a string, not the integer 5");
    expect_refused({"alpha", "le\x1b[31mvel=1"}, "Settled does not read the key 'le\\x1b[31mvel'");
    expect_refused({"alpha", "level=13"},
                   the_key + "'level' must be a double that this block likes, not a float");
    EXPECT_EQ(changes(),
              "alpha: 1 none 7 -> 13 none 7\nalpha: 1 none 7 -> 1 none 7\n"
              "alpha: 1 none 7 -> 1 none 7\nalpha: run\n");
}

TEST_F(Set, RefusesAWrongCommandLineWithoutAHost) {
    expect_refused({"a", "level"}, "'level' is not of the form KEY=VALUE");
    expect_refused({"a", "=2"}, "'=2' is not of the form KEY=VALUE");
    expect_refused({"a", "level=1", "level=2"}, "'level' is given twice");
    expect_refused({"a", "level=[1]"},
                   "the array 'level' must hold strings only, not an integer; no block can read an "
                   "array, except one of a single string");
    for (const char* text : {"level=\"a\\u0000b\"", "level=[\"a\\u0000b\"]"})
        expect_refused({"a", text}, "'level' holds a NUL, which D-Bus does not carry");
    expect_refused({"a", "level={ x = 1 }"},
                   "'level' must be a boolean, an integer, a float, a string or an array of "
                   "strings, not a table");
}

TEST_F(Set, OfABlockThatThrowsEndsTheHostAndSaysSo) {
    start_settled();
    const std::string sentence =
        ":2:8: error: block 'a' (Settled) threw in reconfigure: thrown on purpose";
    expect_refused({"a", "level=66"}, path("graph.toml") + sentence, 70);
    expect_end(
        without_folder(host().wait()), 70,
        "graph.toml" + sentence + "\n" + block("a", "Settled") + "       ^\ngraph.toml: 1 error\n");
}

TEST_F(Set, RefusesTypesOfTheBusThatNoSettingHas) {
    start_settled();
    const ControlClient client(bus());
    EXPECT_EQ(
        client.call("Reconfigure", "sa{sv}", "a", 1, "level", "o", "/a"),
        "WrongSetting: the key 'level' cannot be of the D-Bus type 'o'; a setting is a boolean, "
        "an integer, a float (d), a string or an array of strings");
    EXPECT_EQ(client.call("Reconfigure", "sa{sv}", "a", 1, "hidden", "t",
                          std::uint64_t{0x8000000000000000U}),
              "WrongSetting: the key 'hidden' is too large for a 64-bit signed integer");
    EXPECT_EQ(client.call("Reconfigure", "sa{sv}", "a", 2, "level", "i", 2, "level", "i", 3),
              "WrongSetting: the key 'level' is given twice");
    EXPECT_EQ(client.call("Reconfigure", "sa{sv}", "a", 0), "ok");
    EXPECT_EQ(log(), "");
}

}  // namespace
}  // namespace test
