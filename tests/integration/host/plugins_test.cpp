#include <filesystem>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;

class Plugins : public HostTest {
  protected:
    static std::string plugin(const std::string& name) {
        return std::string(FENWA_TEST_PLUGINS) + "/" + name;
    }

    /// Checks a graph whose only plug-in and only block type are these.
    Ended check_with(const std::string& plugin, const std::string& type,
                     const Words& folders = {}) const {
        Words words{FENWA_PROGRAM, "check",
                    folder().write("graph.toml", "plugins = [\"" + plugin +
                                                     "\"]\n[blocks.b]\ntype = \"" + type + "\"\n")};
        for (const std::string& each : folders) {
            words.push_back("--plugin-dir");
            words.push_back(each);
        }
        return without_folder(run_program(words));
    }

    /// What is said of a plug-in that cannot be used, with its type unknown as a consequence.
    static std::string said(const std::string& name, const std::string& text) {
        return "graph.toml:1:12: error: " + text + "\nplugins = [\"" + name +
               "\"]\n           ^\ngraph.toml: 1 error\n";
    }

    Ended check_bad(const std::string& name) const {
        return check("plugins = [\"" + name + "\"]\n[blocks.t]\ntype = \"Timer\"\ninterval = 1\n");
    }
};

TEST_F(Plugins, GivenFoldersComeFirstInTheirOrder) {
    EXPECT_EQ(check_with("libplaced.so", "From-first", {plugin("first"), plugin("second")}).code,
              0);
    EXPECT_EQ(check_with("libplaced.so", "From-second", {plugin("second"), plugin("first")}).code,
              0);
    EXPECT_EQ(check_with("libplaced.so", "From-second", {plugin("none"), plugin("second")}).code,
              0);
    // Before the one beside `fenwa`, too.
    fs::copy_file(plugin("first/libplaced.so"), folder().path() / "libfenwa-temperature.so");
    EXPECT_EQ(check_with("libfenwa-temperature.so", "From-first", {folder().path().string()}).code,
              0);
}

TEST_F(Plugins, OneBesideTheProgramNeedsNoFolder) {
    EXPECT_EQ(lines_with(check_with("libfenwa-temperature.so", "TemperatureReader").err, "error:"),
              "graph.toml:2:9: error: block 'b' (TemperatureReader): the required key "
              "'sensor_name' (a string) is missing\n"
              "graph.toml:2:9: error: block 'b' (TemperatureReader): the required key "
              "'delta_chg' (a double) is missing\n");
}

TEST_F(Plugins, PathIsSeenFromTheGraphsFolder) {
    fs::create_directory(folder().path() / "sub");
    fs::copy_file(plugin("first/libplaced.so"), folder().path() / "sub/other.so");
    EXPECT_EQ(check_with("sub/other.so", "From-first").code, 0);
    EXPECT_EQ(check_with("./sub/../sub/other.so", "From-first").code, 0);
    EXPECT_EQ(check_with(plugin("second/libplaced.so"), "From-second").code, 0);
    // Folders are for names only.
    EXPECT_EQ(lines_with(check_with("first/libplaced.so", "From-first", {FENWA_TEST_PLUGINS}).err,
                         "graph.toml:1:"),
              "graph.toml:1:12: error: no plug-in at 'first/libplaced.so'; unknown block types are "
              "not reported without it\n");
}

TEST_F(Plugins, FirstOfTheSameTypeIsNamedAndTheSecondThrows) {
    const Ended ended = check(
        "plugins = [\"libprobe.so\", \"libsecond-probe.so\"]\n[blocks.p]\ntype = \"Probe\"\n");
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.err,
              "graph.toml:1:27: error: the plug-in 'libsecond-probe.so' threw in its entry point: "
              "the block type 'Probe' is registered already\n"
              "plugins = [\"libprobe.so\", \"libsecond-probe.so\"]\n"
              "                          ^\ngraph.toml: 1 error\n");
}

TEST_F(Plugins, UnknownOneIsReportedWithTheFoldersAndTheNearest) {
    const Ended ended = check_bad("libprob.so");
    EXPECT_EQ(ended.code, 78);
    EXPECT_TRUE(ended.err.starts_with(
        "graph.toml:1:12: error: no plug-in 'libprob.so' (looked in " FENWA_TEST_PLUGINS ", " +
        fs::path(FENWA_PROGRAM).parent_path().string() + ", "))
        << ended.err;
    EXPECT_TRUE(ended.err.ends_with(
        "\nplugins = [\"libprob.so\"]\n           ^\nhelp: did you mean 'libprobe.so'?\n"
        "graph.toml: 1 error\n"))
        << ended.err;
}

TEST_F(Plugins, EmptyNameIsUnknown) {
    const Ended ended = check_bad("");
    EXPECT_EQ(ended.code, 78);
    EXPECT_TRUE(ended.err.starts_with("graph.toml:1:12: error: no plug-in '' (looked in "))
        << ended.err;
}

TEST_F(Plugins, FileThatIsNoLibrary) {
    folder().write("words.so", std::string(4096, '-'));
    const Ended ended = check_bad("./words.so");
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.err, said("./words.so",
                              "the plug-in './words.so' does not load: ./words.so: "
                              "invalid ELF header"));
}

TEST_F(Plugins, LibraryWithAnUnresolvedSymbol) {
    const Ended ended = check_bad("libunresolved.so");
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.err, said("libunresolved.so",
                              "the plug-in 'libunresolved.so' does not load: libunresolved.so: "
                              "undefined symbol: _Z22symbol_that_nobody_hasv"));
}

TEST_F(Plugins, LibraryWithoutEntryPoint) {
    const Ended ended = check_bad("libno-entry-point.so");
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.err,
              said("libno-entry-point.so",
                   "the plug-in 'libno-entry-point.so' has no entry point 'lib_register_cpp'"));
}

TEST_F(Plugins, EntryPointThatRefuses) {
    const Ended ended = check_bad("librefusing.so");
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(ended.err, said("librefusing.so",
                              "the plug-in 'librefusing.so' cannot be used: its entry point "
                              "returned 7"));
}

TEST_F(Plugins, EntryPointThatThrowsGives70) {
    const Ended ended = check_bad("libthrowing.so");
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(ended.err, said("libthrowing.so",
                              "the plug-in 'libthrowing.so' threw in its entry point: no licence"));
    const Ended oddly = check_bad("liboddly-throwing.so");
    EXPECT_EQ(oddly.code, 70);
    EXPECT_EQ(oddly.err, said("liboddly-throwing.so",
                              "the plug-in 'liboddly-throwing.so' threw in its entry point "
                              "something that is not a std::exception"));
}

TEST_F(Plugins, OneThatThrowsDoesNotHideTheNext) {
    const Ended ended = check(
        "plugins = [\"libthrowing.so\", \"librefusing.so\"]\n[blocks.t]\n"
        "type = \"Timer\"\ninterval = 1\n");
    EXPECT_EQ(ended.code, 78);
    EXPECT_EQ(lines_with(ended.err, "error: "),
              "graph.toml:1:12: error: the plug-in 'libthrowing.so' threw in its entry point: no "
              "licence\ngraph.toml:1:30: error: the plug-in 'librefusing.so' cannot be used: its "
              "entry point returned 7\n");
}

TEST_F(Plugins, RunReportsThemToo) {
    const Ended ended =
        run("plugins = [\"libthrowing.so\"]\n[blocks.t]\ntype = \"Timer\"\ninterval = 1\n");
    EXPECT_EQ(ended.code, 70);
    EXPECT_EQ(without_times(ended.out), "{\"event\":\"exit\",\"time\":0,\"status\":70}\n");
    EXPECT_EQ(ended.err, said("libthrowing.so",
                              "the plug-in 'libthrowing.so' threw in its entry point: no licence"));
}

}  // namespace
}  // namespace test
