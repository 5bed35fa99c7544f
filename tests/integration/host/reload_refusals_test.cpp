#include <sys/stat.h>

#include <csignal>
#include <filesystem>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

std::string settled(const std::string& name, const std::string& settings = {}) {
    return block(name, "Settled", settings);
}

const std::string not_reloaded = "fenwa: graph.toml: not reloaded; the graph goes on as it was\n";
const std::string relay = block("r", "Relay");

class ReloadRefusals : public HostTest {
  protected:
    /// Expects that the host refuses the file as it is now, for these reasons.
    void expect_refused(const std::string& errors, const std::optional<std::string>& graph = {}) {
        const std::string said = reload(graph);
        EXPECT_TRUE(said.ends_with(not_reloaded)) << said;
        EXPECT_EQ(lines_with(said, errors.starts_with("fenwa") ? "cannot" : "error: "), errors);
    }
};

TEST_F(ReloadRefusals, NameEveryChangeThatNeedsARestart) {
    start("plugins = [\"libprobe.so\", \"libmisbehaving.so\"]\n" + settled("a", "level = 2"));
    // Not the types of a plug-in that is not loaded.
    expect_refused(
        R"(graph.toml: error: the plug-in 'libmisbehaving.so' has been removed, which needs a restart
graph.toml:1:27: error: the plug-in 'libother.so' has been added, which needs a restart
graph.toml:2:18: error: the bus changes from 'system' to 'session', which needs a restart
graph.toml:2:38: error: the bus name 'com.example.A' has been added, which needs a restart
)",
        R"(plugins = ["libprobe.so", "libother.so"]
bus = {address = "session", names = ["com.example.A"]}
blocks.a = {type = "Settled", level = 3}
blocks.b = {type = "Other"})");
    EXPECT_EQ(messages(host().terminate().out), "");
}

TEST_F(ReloadRefusals, LeaveEverythingAsItWas) {
    const std::string changed = settled("a", "level = 3") + settled("b") + relay;
    start(settled("a", "level = 2") + settled("b") + relay);
    expect_refused("graph.toml: error: the graph has no blocks\n", "");
    expect_refused(
        "graph.toml:5:2: error: Error while parsing key: expected bare key starting character or "
        "string delimiter, saw '\\n'\n",
        changed + "[");
    expect_refused("graph.toml:5:20: error: unknown block type 'Setled'\n",
                   changed + block("n", "Setled"));
    expect_refused(
        "graph.toml:5:24: error: no block 'c' in the graph\n"
        "graph.toml:5:36: error: 'a.level' is an output, not an input\n",
        changed + R"(connections = [{from = "c.x", to = "a.level"}])");
    // Whatever is wrong, the change of a's level, which is not, is not made either.
    expect_refused(
        "graph.toml:3:31: error: block 'b' (Settled): the key 'level' must be a double, "
        "not the string \"x\"\n",
        settled("a", "level = 3") + settled("b", "level = \"x\"") + relay);
    expect_refused(
        "graph.toml:2:42: error: block 'a' (Settled): the key 'hidden' must be an int, "
        "not the string \"x\"\n",
        settled("a", "level = 3, hidden = \"x\"") + settled("b") + relay);
    EXPECT_EQ(reload(changed), "fenwa: graph.toml: reloaded; new settings for 'a'\n");
    ASSERT_TRUE(host().wait_for_text("a: run"));
    EXPECT_EQ(messages(host().terminate().out),
              "a: 2 none 7 -> 3 none 7\na: 3 none 7 -> 3 none 7\na: run\n");
}

TEST_F(ReloadRefusals, FileThatIsGoneOrIsNotAFileIsNotWaitedFor) {
    start(settled("a"));
    const std::filesystem::path file = path("graph.toml");
    const std::string cannot_read = "fenwa: cannot read 'graph.toml': ";
    std::filesystem::remove(file);
    expect_refused(cannot_read + "No such file or directory\n");
    ASSERT_EQ(mkfifo(file.c_str(), 0600), 0);
    expect_refused(cannot_read + "not a regular file\n");
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    expect_refused(cannot_read + "Is a directory\n");
    EXPECT_EQ(messages(host().terminate().out), "");
}

class RefusingBlock : public ReloadRefusals, public testing::WithParamInterface<std::string> {};

TEST_P(RefusingBlock, HasTheOldSettingsAgainAndThoseBeforeItToo) {
    const std::string& level = GetParam();
    start(settled("a") + settled("b") + settled("c"));
    expect_refused(
        "graph.toml:3:31: error: block 'b' (Settled): the key 'level' must be a double "
        "that this block likes, not a float\n",
        settled("a", "level = 2") + settled("b", "level = " + level) + settled("c", "level = 2"));
    ASSERT_TRUE(host().wait_for_text("b: run"));
    const std::string second = level == "14" ? "b: 14 none 7 -> 14 none 7\n" : "";
    EXPECT_EQ(messages(host().terminate().out),
              "a: 1 none 7 -> 2 none 7\na: 2 none 7 -> 2 none 7\nb: 1 none 7 -> " + level +
                  " none 7\n" + second +
                  "b: 1 none 7 -> 1 none 7\nb: 1 none 7 -> 1 none 7\n"
                  "a: 1 none 7 -> 1 none 7\na: 1 none 7 -> 1 none 7\na: run\nb: run\n");
}

INSTANTIATE_TEST_SUITE_P(AtOnceOrTheSecondTime, RefusingBlock, testing::Values("13", "14"));

TEST_F(ReloadRefusals, OfABlockThatThrowsOrKeepsRefusingEndTheHost) {
    struct {
        std::string level, place, line, sentence;
    } const ends[]{
        {"66", "4:8", settled("a", "level = 66"), "threw in reconfigure: thrown on purpose"},
        {"67", "2:8", settled("a"),
         "refuses its previous settings: the key 'level' must be a double that this block likes, "
         "not a float"}};
    for (const auto& [level, place, line, sentence] : ends) {
        start(settled("a") + settled("b"));
        write_graph("\n\n" + settled("a", "level = " + level) + settled("b", "level = 2"));
        host().send_signal(SIGHUP);
        const Ended ended = without_folder(host().wait());
        EXPECT_EQ(ended.code, 70);
        EXPECT_TRUE(ended.err.ends_with("graph.toml:" + place + ": error: block 'a' (Settled) " +
                                        sentence + "\n" + line + "       ^\ngraph.toml: 1 error\n"))
            << ended.err;
        EXPECT_TRUE(messages(ended.out).starts_with("a: 1 none 7 -> " + level + " none 7\n"));
        EXPECT_EQ(lines_with(messages(ended.out), "b: "), "");
    }
}

TEST_F(ReloadRefusals, LaterMistakesAreShownInTheFileAsItWasReadLast) {
    const std::string failing = block("p", "Probe", R"(throws_in = "stop", throws = "missing")");
    start(settled("a") + failing);
    reload("# one\n# two\n" + settled("a", "level = 2") + failing);
    const Ended ended = without_folder(host().terminate());
    expect_end(ended, 78,
               "fenwa: graph.toml: reloaded; new settings for 'a'\n"
               "graph.toml:5:8: error: block 'p' (Probe): the required key 'absent' (an int) is "
               "missing\n" +
                   failing + "       ^\ngraph.toml: 1 error\n");
}

TEST_F(ReloadRefusals, SettingsThatCrashABlockAreRefusedAlsoOverTheBus) {
    const std::string plugin = "plugins = [\"libmisbehaving.so\"]\n";
    const std::string sentence = "block 'f' (Fragile) crashed in its constructor: SIGABRT\n";
    start(plugin + block("f", "Fragile"), {"--control"});
    expect_refused("graph.toml:2:8: error: " + sentence,
                   plugin + block("f", "Fragile", "handle_with_care = true"));
    expect_end(fenwa({"set", "--bus", bus(), "f", "handle_with_care=true"}), 2,
               "fenwa: " + sentence);
}

}  // namespace
}  // namespace test
