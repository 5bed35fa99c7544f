// The man pages are well-formed, and what they show as a graph file is one.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "tests/pages/help.hpp"
#include "tests/pages/man_page.hpp"
#include "tests/support/pattern.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temporary_folder.hpp"

namespace test {
namespace {

class ManPage : public testing::TestWithParam<std::string> {
  protected:
    static std::string file() { return std::string(FENWA_PAGES) + '/' + GetParam(); }
};

TEST_P(ManPage, HasNothingThatTheFormattersComplainOf) {
    const Ended lint = run_program({"mandoc", "-Tlint", "-Wwarning", file()});
    EXPECT_EQ(lint.out + lint.err, "");
    EXPECT_EQ(lint.code, 0);
    const Ended groff = run_program({"groff", "-mandoc", "-ww", "-Tutf8", file()});
    EXPECT_EQ(groff.err, "");
    EXPECT_EQ(groff.code, 0);
}

TEST_P(ManPage, CarriesVersionAndDate) {
    std::ifstream stream(file());
    std::stringstream text;
    text << stream.rdbuf();
    static const Pattern variable("@[A-Z_]+@");
    EXPECT_EQ(variable.find(text.str()), Groups{}) << "something was not substituted";
    const Ended shown = run_program({"mandoc", "-Tascii", file()});
    const Pattern last_line(R"(\nFenwa )" FENWA_VERSION
                            R"( +[A-Z][a-z]+ [0-9]{1,2}, [0-9]{4} +\S.*\n$)");
    EXPECT_TRUE(!last_line.find(shown.out).empty()) << shown.out;
}

TEST_P(ManPage, RefersToPagesOfOursThatAreThere) {
    std::ifstream stream(file());
    const Pattern reference(R"(\.Xr (fenwa\S*) ([0-9]).*)");
    int found = 0;
    for (std::string line; std::getline(stream, line);) {
        const Groups match = reference.match(line);
        if (match.empty())
            continue;
        ++found;
        EXPECT_TRUE(std::ifstream(std::string(FENWA_PAGES) + '/' + match[1] + '.' + match[2]))
            << line;
    }
    EXPECT_GE(found, 2);
}

INSTANTIATE_TEST_SUITE_P(
    Of, ManPage, testing::Values("fenwa.1", "fenwa-abi-check.1", "fenwa-camera.1", "fenwa-graph.5"),
    [](const auto& page) {
        std::string name = page.param;
        std::replace_if(
            name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
        return name;
    });

TEST(GraphPage, ShowsGraphsWithoutMistakes) {
    int graphs = 0;
    for (const PageSection& section : read_man_page("fenwa-graph.5")) {
        for (const std::string& display : section.displays) {
            if (!display.starts_with("plugins"))
                continue;
            ++graphs;
            const TemporaryFolder folder;
            const Ended ended = run_program({path_of("fenwa"), "check", "--deny-warnings",
                                             folder.write("graph.toml", display)});
            EXPECT_EQ(ended.code, 0) << display << ended.err;
        }
    }
    EXPECT_EQ(graphs, 2);
}

TEST(GraphPage, ShowsDiagnosticsAsTheyAre) {
    const TemporaryFolder folder;
    folder.write("graph.toml",
                 "plugins = [\"libfenwa-temperature.so\"]\n\n[blocks.reader]\n"
                 "type = \"TemperaturReader\"\nsensor_name = \"main\"\n");
    const Ended ended = run_program({"/bin/sh", "-c", "cd \"$1\" && exec \"$2\" check graph.toml",
                                     "sh", folder.path().string(), path_of("fenwa")});
    EXPECT_EQ(ended.code, 78);
    std::string shown = section_named(read_man_page("fenwa-graph.5"), "DIAGNOSTICS").displays.at(0);
    EXPECT_EQ(shown, ended.err);
}

TEST(CameraPage, ShowsFilesThatACameraPlays) {
    const std::vector<PageSection> page = read_man_page("fenwa-camera.1");
    const TemporaryFolder folder;
    const std::string config =
        folder.write("camera.toml", section_named(page, "CONFIGURATION").displays.at(0));
    // Nobody does what the scenario waits for, so it ends with 1 and not with 78.
    const std::string scenario = folder.write(
        "scenario.toml",
        Pattern("within = 10.0")
            .replace(section_named(page, "SCENARIOS").displays.at(0), "within = 0.01"));
    const Ended ended = run_program({path_of("fenwa-camera"), "run", "--private-bus", "--config",
                                     config, "--scenario", scenario});
    EXPECT_EQ(ended.code, 1) << ended.err;
}

}  // namespace
}  // namespace test
