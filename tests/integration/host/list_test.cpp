#include <filesystem>

#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"
#include "tests/support/json_printing.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;

/// `fenwa list`, with plug-ins in a folder of the test's own.
class List : public HostTest {
  protected:
    List() { fs::create_directory(plugins_); }

    void install(const std::string& plugin) const {
        fs::copy_file(std::string(FENWA_TEST_PLUGINS) + '/' + plugin, plugins_ / plugin);
    }
    Ended list(const Words& options, const std::string& address = bus()) const {
        return without_folder(
            fenwa(Words{"list", "--plugin-dir", plugins_.string(), "--bus", address} + options));
    }

    fs::path plugins_ = folder().path() / "plugins";
};

TEST_F(List, NamesPluginsWithTheirTypesAndHosts) {
    install("libprobe.so");
    start(block("t", "Timer", "interval = 1000"), {"--control=com.example.Listed"});
    BusListener other(bus());
    other.own("com.example.Other");
    const Ended ended = list({});
    expect_end(ended);
    EXPECT_TRUE(ended.out.starts_with("built in\n  Timer\n\n")) << ended.out;
    EXPECT_NE(ended.out.find("\nlibprobe.so  plugins/libprobe.so\n  "), std::string::npos)
        << ended.out;
    EXPECT_NE(ended.out.find("\n  TemperatureReader\n"), std::string::npos) << ended.out;
    EXPECT_TRUE(ended.out.ends_with("\nhosts on the bus at '" + bus() +
                                    "'\n  com.example.Listed  process " +
                                    std::to_string(host().pid()) + "\n"))
        << ended.out;
    EXPECT_EQ(ended.out.find("libfenwa-shared"), std::string::npos) << "no plug-in";
}

TEST_F(List, SaysThatThereIsNoHost) {
    EXPECT_TRUE(list({}).out.ends_with("\nno hosts on the bus at '" + bus() + "'\n"));
}

TEST_F(List, ListsPluginsWithoutABus) {
    install("libprobe.so");
    const Ended ended = list({}, "unix:path=/no/bus");
    EXPECT_EQ(ended.code, 0);
    EXPECT_TRUE(
        ended.err.starts_with("fenwa: hosts are not listed: cannot reach the bus at "
                              "'unix:path=/no/bus': No such file or directory"))
        << ended.err;
    EXPECT_NE(ended.out.find("\n  Relay\n"), std::string::npos) << ended.out;
    EXPECT_EQ(ended.out.find("hosts"), std::string::npos) << ended.out;
}

TEST_F(List, GivesTheReasonWhyAPluginCannotBeUsed) {
    install("librefusing.so");
    install("libentry-throws.so");
    const Ended ended = list({"--color=never"});
    expect_end(ended);
    EXPECT_NE(ended.out.find("\nlibrefusing.so  plugins/librefusing.so\n  the plug-in "
                             "'plugins/librefusing.so' cannot be used: its entry point returned "
                             "7\n"),
              std::string::npos)
        << ended.out;
    EXPECT_NE(ended.out.find("\nlibentry-throws.so  plugins/libentry-throws.so\n  Early\n  "
                             "threw in its entry point: no licence\n"),
              std::string::npos)
        << ended.out;
}

TEST_F(List, IsOneDocumentAsJson) {
    install("libprobe.so");
    start(block("t", "Timer", "interval = 1000"), {"--control"});
    const auto listed = [this](const std::string& address) {
        return common::parse_json(list({"--format=json"}, address).out, "the list");
    };
    const common::Json now = listed(bus());
    EXPECT_EQ(now.at("built_in"), common::Json::array({"Timer"}));
    EXPECT_EQ(
        now.at("hosts"),
        common::Json::array({{{"name", "com.tarlo.Fenwa.Host1"}, {"process", host().pid()}}}));
    bool found = false;
    for (const common::Json& plugin : now.at("plugins")) {
        if (plugin.at("plugin") != "libprobe.so")
            continue;
        found = true;
        EXPECT_EQ(plugin.at("file"), "plugins/libprobe.so");
        EXPECT_GT(plugin.at("types").size(), 10U);
    }
    EXPECT_TRUE(found) << now;
    EXPECT_TRUE(listed("unix:path=/no/bus").at("hosts").is_null());
}

}  // namespace
}  // namespace test
