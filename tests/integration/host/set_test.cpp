#include <nlohmann/json.hpp>
#include <regex>

#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/reload_scene.hpp"

namespace test {
namespace {

/// Settings of a running host's blocks changed with `fenwa set`, and over the bus.
class Set : public ReloadTest {
  protected:
    void start(const std::string& lines) { ReloadTest::start(lines, {"--control"}); }

    static Ended set(const Words& words) {
        Words all{FENWA_PROGRAM, "set", "--bus", bus()};
        all.insert(all.end(), words.begin(), words.end());
        return run_program(all);
    }

    void expect_set(const Words& words) {
        const Ended ended = set(words);
        EXPECT_EQ(ended.code, 0) << words.back();
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, "");
        EXPECT_TRUE(host().wait_for_error_text("fenwa: new settings for '" + words.front() +
                                               "', set over the bus"));
    }

    static void expect_refused(const Words& words, const std::string& sentence, int code = 2) {
        const Ended ended = set(words);
        EXPECT_EQ(ended.code, code) << sentence;
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, "fenwa: " + sentence + "\n");
    }
};

/// What the block 'a' says of a change.
std::string twice(const std::string& before, const std::string& after) {
    return "a: " + before + " -> " + after + "\na: " + after + " -> " + after + "\n";
}

TEST_F(Set, TellsTheBlockAsAReloadDoes) {
    start(settled("a", "note = \"x\"\n") + settled("b", ""));
    expect_set({"a", "level=2.5", "note=main street"});
    ASSERT_TRUE(host().wait_for_text("a: run"));
    expect_set({"a", "level=3"});
    EXPECT_EQ(lines_with(stop(), "->"),
              "a: 1 x 7 -> 2.5 main street 7\na: 2.5 main street 7 -> 2.5 main street 7\n"
              "a: 2.5 main street 7 -> 3 main street 7\na: 3 main street 7 -> 3 main street 7\n");
}

TEST_F(Set, TakesAKeyThatTheBlockReadsOnlyAtTimes) {
    start(settled("a", ""));
    expect_set({"a", "hidden=9"});
    ASSERT_TRUE(host().wait_for_text("a: run"));
    EXPECT_EQ(stop(), twice("1 none 7", "1 none 9") + "a: run\n");
}

TEST_F(Set, IsNotKeptFromItByAMistakeInTheFile) {
    start(settled("a", "noet = \"x\"\n"));
    expect_set({"a", "level=2"});
    EXPECT_EQ(set({"a", "noet=y"}).code, 2);
    ASSERT_TRUE(host().wait_for_text("a: run"));
    EXPECT_EQ(stop(), twice("1 none 7", "2 none 7") + "a: run\n");
}

TEST_F(Set, OfWhatABlockHasAlreadyTellsNobody) {
    start(settled("a", "level = 2.0\n"));
    const Ended ended = set({"a", "level=2.0"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(stop(), "");
    EXPECT_EQ(host().err(), "");
}

TEST_F(Set, ReadsValuesAsAGraphFileDoes) {
    start(settled("a", ""));
    expect_set({"a", "note=\"a \\\"b\\\"\"", "level=1_000"});
    expect_set({"a", "note='12'"});
    expect_set({"a", "note=[\"one\"]", "level=inf"});
    expect_set({"a", "note="});
    expect_set({"a", "note=k=v, [x"});
    expect_set({"a", "note=2020-01-01"});
    expect_set({"a", "note=two\nhidden = 5"});
    ASSERT_TRUE(host().wait_for_text("a: run"));
    // How often it runs in between is the loop's to say.
    EXPECT_EQ(std::regex_replace(stop(), std::regex("a: run\n"), ""),
              twice("1 none 7", "1000 a \"b\" 7") + twice("1000 a \"b\" 7", "1000 12 7") +
                  twice("1000 12 7", "inf one 7") + twice("inf one 7", "inf  7") +
                  twice("inf  7", "inf k=v, [x 7") + twice("inf k=v, [x 7", "inf 2020-01-01 7") +
                  twice("inf 2020-01-01 7", "inf two\nhidden = 5 7"));
}

TEST_F(Set, ShowsInTheDescription) {
    start(settled("a", "note = \"x\"\n"));
    const ControlClient client(bus());
    EXPECT_EQ(
        client.call("Reconfigure", "sa{sv}", "a", 3, "level", "i", 4, "note", "as", 2, "p", "q",
                    "hidden", "y", 8),
        "WrongSetting: block 'a' (Settled): the key 'note' must be a string, not an array of 2 "
        "strings");
    EXPECT_EQ(client.call("Reconfigure", "sa{sv}", "a", 2, "level", "i", 4, "hidden", "t",
                          std::uint64_t{8}),
              "ok");
    const auto described = nlohmann::json::parse(client.describe());
    EXPECT_EQ(described.at("blocks").at(0).at("settings").dump(),
              R"({"hidden":8,"level":4,"note":"x"})");
}

TEST_F(Set, DescriptionHoldsTextThatDBusDoesNotCarry) {
    start(settled("a", "note = \"x\\ufffe\\u00e9\"\n"));
    const std::string described = ControlClient(bus()).describe();
    EXPECT_NE(described.find(R"("note":"x\ufffe\u00e9")"), described.npos) << described;
}

TEST_F(Set, IsTakenBackByAReload) {
    start(settled("a", "level = 2\n") + settled("b", ""));
    expect_set({"a", "level=5"});
    EXPECT_EQ(reload(), "fenwa: graph.toml: reloaded; new settings for 'a'\n");
    EXPECT_EQ(lines_with(stop(), "a: 5 none 7 -> 2"), "a: 5 none 7 -> 2 none 7\n");
}

TEST_F(Set, RefusesWhatIsWrongWithASentence) {
    start(settled("alpha", "") + settled("b", ""));
    expect_refused({"alhpa", "level=2"}, "no block 'alhpa' in the graph; did you mean 'alpha'?");
    expect_refused({"alpha", "lvel=2"},
                   "Settled does not read the key 'lvel'; did you mean 'level'?");
    expect_refused({"alpha", "level=high"},
                   "block 'alpha' (Settled): the key 'level' must be a double, not the string "
                   "\"high\"");
    expect_refused({"alpha", "hidden=x"},
                   "block 'alpha' (Settled): the key 'hidden' must be an int, not the string "
                   "\"x\"");
    expect_refused({"alpha", "le\x1b[31mvel=1"}, "Settled does not read the key 'le\\x1b[31mvel'");
    expect_refused({"alpha", "level=13"},
                   "block 'alpha' (Settled): the key 'level' must be a double that this block "
                   "likes, not a float");
    ASSERT_TRUE(host().wait_for_text("alpha: run"));
    EXPECT_EQ(stop(),
              "alpha: 1 none 7 -> 13 none 7\nalpha: 1 none 7 -> 1 none 7\n"
              "alpha: 1 none 7 -> 1 none 7\nalpha: run\n");
}

TEST_F(Set, RefusesAWrongCommandLineWithoutAHost) {
    expect_refused({"a", "level"}, "'level' is not of the form KEY=VALUE");
    expect_refused({"a", "=2"}, "'=2' is not of the form KEY=VALUE");
    expect_refused({"a", "level=1", "level=2"}, "'level' is given twice");
    expect_refused({"a", "level=[1]"}, "the array 'level' must hold strings only, not an integer");
    expect_refused({"a", "level=\"a\\u0000b\""}, "'level' holds a NUL, which D-Bus does not carry");
    expect_refused({"a", "level=[\"a\\u0000b\"]"},
                   "'level' holds a NUL, which D-Bus does not carry");
    expect_refused({"a", "level={ x = 1 }"},
                   "'level' must be a boolean, an integer, a float, a string or an array of "
                   "strings, not a table");
    expect_refused({"a", "level=2"},
                   "no host owns 'com.tarlo.Fenwa.Host1' on the bus at '" + bus() +
                       "'; start one with 'fenwa run GRAPH --control', or name its bus with --bus",
                   69);
}

TEST_F(Set, ChangesAllOrNothing) {
    start(settled("a", ""));
    expect_refused({"a", "level=2", "note=5"},
                   "block 'a' (Settled): the key 'note' must be a string, not the integer 5");
    EXPECT_EQ(stop(), "");
}

TEST_F(Set, OfABlockThatThrowsEndsTheHostAndSaysSo) {
    start(settled("a", ""));
    const std::string file = (folder().path() / "graph.toml").string();
    expect_refused(
        {"a", "level=66"},
        file + ":2:9: error: block 'a' (Settled) threw in reconfigure: thrown on purpose", 70);
    const Ended ended = host().wait();
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.err,
              file +
                  ":2:9: error: block 'a' (Settled) threw in reconfigure: thrown on purpose\n"
                  "[blocks.a]\n        ^\n" +
                  file + ": 1 error\n");
}

TEST_F(Set, RefusesTypesOfTheBusThatNoSettingHas) {
    start(settled("a", ""));
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
    EXPECT_EQ(stop(), "");
}

}  // namespace
}  // namespace test
