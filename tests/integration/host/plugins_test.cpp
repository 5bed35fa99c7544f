#include <filesystem>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;

/// The search for plug-ins. Plug-ins that cannot be used are in tests/graphs/host.
class Plugins : public HostTest {
  protected:
    static std::string plugin(const std::string& name) {
        return std::string(FENWA_TEST_PLUGINS) + "/" + name;
    }

    /// Checks a graph whose only plug-in and only block type are these.
    Ended check_with(const std::string& plugin, const std::string& type,
                     const Words& folders = {}) const {
        Words words{"check", write_graph("plugins = [\"" + plugin + "\"]\n" + block("b", type))};
        for (const std::string& each : folders)
            words = words + Words{"--plugin-dir", each};
        return without_folder(fenwa(words));
    }
};

TEST_F(Plugins, GivenFoldersComeFirstInTheirOrder) {
    const std::string name = "libplaced.so";
    EXPECT_EQ(check_with(name, "From-first", {plugin("first"), plugin("second")}).code, 0);
    EXPECT_EQ(check_with(name, "From-second", {plugin("second"), plugin("first")}).code, 0);
    EXPECT_EQ(check_with(name, "From-second", {plugin("none"), plugin("second")}).code, 0);
    // Before the one beside `fenwa`, too.
    fs::copy_file(plugin("first/libplaced.so"), path("libfenwa-temperature.so"));
    EXPECT_EQ(check_with("libfenwa-temperature.so", "From-first", {folder().path()}).code, 0);
}

TEST_F(Plugins, OneBesideTheProgramNeedsNoFolder) {
    EXPECT_EQ(lines_with(check_with("libfenwa-temperature.so", "TemperatureReader").err, "error:"),
              "graph.toml:2:8: error: block 'b' (TemperatureReader): the required key "
              "'sensor_name' (a string) is missing\n"
              "graph.toml:2:8: error: block 'b' (TemperatureReader): the required key "
              "'delta_chg' (a double) is missing\n");
}

TEST_F(Plugins, PathIsSeenFromTheGraphsFolder) {
    fs::create_directory(path("sub"));
    fs::copy_file(plugin("first/libplaced.so"), path("sub/other.so"));
    EXPECT_EQ(check_with("sub/other.so", "From-first").code, 0);
    EXPECT_EQ(check_with("./sub/../sub/other.so", "From-first").code, 0);
    EXPECT_EQ(check_with(plugin("second/libplaced.so"), "From-second").code, 0);
}

TEST_F(Plugins, UnknownOneIsReportedWithTheFolders) {
    const Ended ended = check_with("libprob.so", "Probe", {FENWA_TEST_PLUGINS});
    EXPECT_EQ(ended.code, 78);
    EXPECT_TRUE(ended.err.starts_with(
        "graph.toml:1:12: error: no plug-in 'libprob.so' (looked in " FENWA_TEST_PLUGINS ", " +
        fs::path(FENWA_PROGRAM).parent_path().string() + ", "))
        << ended.err;
}

}  // namespace
}  // namespace test
