// Completion of files, of what a running host or camera has, in shells of all kinds.
#include <gtest/gtest.h>

#include <algorithm>

#include "common/bus/private_bus.hpp"
#include "tests/pages/help.hpp"
#include "tests/pages/shell.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temporary_folder.hpp"

namespace test {
namespace {

const std::string fenwa = path_of("fenwa");
const std::string fenwa_camera = path_of("fenwa-camera");

class CompletionOfFiles : public testing::Test {
  protected:
    CompletionOfFiles() {
        for (const char* name : {"one.toml", "two words.toml", "note.txt", "old.so", "now.svg"})
            folder_.write(name, "");
        std::filesystem::create_directory(folder_.path() / "graphs.d");
        folder_.write("graphs.d/inner.toml", "");
    }

    [[nodiscard]] Words offers(const Words& words) const {
        Words offered = Shell{"", folder_.path().string(), ""}.offers(words);
        std::sort(offered.begin(), offered.end());
        return offered;
    }

  private:
    TemporaryFolder folder_;
};

TEST_F(CompletionOfFiles, OffersGraphsAndFolders) {
    const Words all{"graphs.d", "one.toml", "two words.toml"};
    EXPECT_EQ(offers({fenwa, "run", ""}), all);
    EXPECT_EQ(offers({fenwa, "check", "--deny-warnings", ""}), all);
    EXPECT_EQ(offers({fenwa, "run", "--format", "json", "--control", ""}), all);
    EXPECT_EQ(offers({fenwa, "run", "--format", "=", "json", "--for", "3", "o"}),
              Words{"one.toml"});
    EXPECT_EQ(offers({fenwa, "run", "graphs.d/i"}), Words{"graphs.d/inner.toml"});
    EXPECT_EQ(offers({fenwa, "run", "one.toml", ""}), Words{});
    EXPECT_EQ(offers({fenwa, "run", "--", "o"}), Words{"one.toml"});
}

TEST_F(CompletionOfFiles, OffersFoldersAndConfigurations) {
    EXPECT_EQ(offers({fenwa, "run", "--plugin-dir", ""}), Words{"graphs.d"});
    EXPECT_EQ(offers({fenwa, "run", "--plugin-dir", "=", "gra"}), Words{"graphs.d"});
    EXPECT_EQ(offers({fenwa_camera, "run", "--config", "o"}), Words{"one.toml"});
    EXPECT_EQ(offers({fenwa_camera, "run", "--scenario", "=", "o"}), Words{"one.toml"});
    EXPECT_EQ(offers({fenwa_camera, "run", "--private-bus", "=", "no"}),
              (Words{"note.txt", "now.svg"}));
}

TEST_F(CompletionOfFiles, CompletesTheProgramsBehindTheDashes) {
    EXPECT_EQ(offers({fenwa_camera, "run", "--private-bus", "--", fenwa, "run", "--deny"}),
              Words{});
    EXPECT_EQ(offers({fenwa_camera, "run", "--private-bus", "--", fenwa, "check", "--deny"}),
              Words{"--deny-warnings"});
    EXPECT_EQ(offers({fenwa_camera, "run", "--", fenwa, "run", "x", "--", fenwa, "run", "o"}),
              Words{"one.toml"});
    EXPECT_EQ(offers({fenwa_camera, "run", "--", "cat", "note"}), Words{"note.txt"});
    const Words programs = offers({fenwa_camera, "run", "--", "dbus-daem"});
    EXPECT_NE(std::find(programs.begin(), programs.end(), "dbus-daemon"), programs.end());
}

/// A host and a camera on a bus of their own.
class CompletionOfNames : public testing::Test {
  protected:
    static constexpr const char* graph = R"(
plugins = ["libfenwa-temperature.so"]
[blocks.tick]
type = "Timer"
interval = 100000
[blocks."a b.c"]
type = "VideoReady"
channel = 0
[blocks.power]
type = "PowerConsumer"
channel = 0
power = 4.5
[[connections]]
from = "tick.out"
to = "power.timer_in"
)";

    CompletionOfNames() {
        EXPECT_TRUE(camera_.wait_for_text("ready on"));
        EXPECT_TRUE(host_.wait_for_text("\"ready\"")) << host_.err();
    }

    [[nodiscard]] Words offers(const Words& words, bool with_bus = true) const {
        return Shell{"", "", with_bus ? bus_.address() : ""}.offers(words);
    }
    [[nodiscard]] const std::string& address() const { return bus_.address(); }

  private:
    TemporaryFolder folder_;
    common::PrivateBus bus_;
    Process camera_{{fenwa_camera, "run", "--bus", bus_.address()}};
    Process host_{{fenwa, "run", "--format", "json", "--control", "--bus", bus_.address(),
                   folder_.write("graph.toml", graph)}};
};

TEST_F(CompletionOfNames, OffersThePortsOfARunningHost) {
    EXPECT_EQ(offers({fenwa, "read", ""}),
              (Words{"tick.out", "a\\ b.c.rotation_vip0_in", "a\\ b.c.rotation_vip1_in",
                     "power.power_out", "power.timer_in"}));
    EXPECT_EQ(offers({fenwa, "read", "power."}), (Words{"power.power_out", "power.timer_in"}));
    EXPECT_EQ(offers({fenwa, "read", "a\\ b.c.rotation_vip1"}), Words{"a\\ b.c.rotation_vip1_in"});
    EXPECT_EQ(offers({fenwa, "read", "power.power_out", ""}), Words{});
}

TEST_F(CompletionOfNames, OffersForWritingTheInputsThatNothingIsConnectedTo) {
    EXPECT_EQ(offers({fenwa, "write", ""}),
              (Words{"a\\ b.c.rotation_vip0_in", "a\\ b.c.rotation_vip1_in"}));
}

TEST_F(CompletionOfNames, AsksTheHostThatTheCommandLineNames) {
    EXPECT_EQ(offers({fenwa, "read", "tick"}, false), Words{});
    // Readline takes an address apart at ":" and "=".
    const std::size_t path = address().find('=') + 1;
    const std::string rest = address().substr(path, address().find(',') - path);
    EXPECT_EQ(offers({fenwa, "read", "--bus", "unix", ":", "path", "=", rest, "tick"}, false),
              Words{"tick.out"});
    EXPECT_EQ(offers({fenwa, "read", "--bus", "=", "unix", ":", "path", "=", rest, "tick"}, false),
              Words{"tick.out"});
    EXPECT_EQ(offers({fenwa, "read", "--control", "com.example.Other", "tick"}), Words{});
}

TEST_F(CompletionOfNames, ListsBlocksAndTheirSettings) {
    const auto names = [this](const Words& words) {
        Words all{fenwa, "names", "--bus", address()};
        all.insert(all.end(), words.begin(), words.end());
        return run_program(all).out;
    };
    EXPECT_EQ(names({"blocks"}), "tick\na b.c\npower\n");
    EXPECT_EQ(names({"settings", "tick"}), "interval\n");
    EXPECT_EQ(names({"settings", "power"}), "channel\npower\n");
    EXPECT_EQ(names({"settings", "nobody"}), "");
}

TEST_F(CompletionOfNames, OffersTheValuesOfARunningCamera) {
    EXPECT_EQ(offers({fenwa_camera, "set", "temperature."}),
              (Words{"temperature.main", "temperature.lens", "temperature.housing"}));
    EXPECT_EQ(offers({fenwa_camera, "set", "temperature."}, false), Words{});
}

TEST(CompletionWithoutAHost, IsSilentAndSoon) {
    // A bus that takes connections and says nothing.
    const TemporaryFolder folder;
    const std::string socket = (folder.path() / "bus").string();
    const common::PrivateBus bus({{}, {}, socket, {}});
    kill(bus.pid(), SIGSTOP);
    const auto begin = std::chrono::steady_clock::now();
    const Words offered = Shell{"", "", bus.address()}.offers({fenwa, "read", ""});
    const auto passed = std::chrono::steady_clock::now() - begin;
    kill(bus.pid(), SIGCONT);
    EXPECT_EQ(offered, Words{});
    EXPECT_LT(passed, std::chrono::seconds(10));
}

/// A program whose help has what ours takes in other places: files by their kind, settings.
TEST(CompletionOfWords, KnowsPlugInsPicturesAndSettings) {
    const TemporaryFolder folder;
    const std::string program = folder.write("fenwa", R"(#!/bin/sh
case $1 in
    set) echo 'Usage: fenwa set [OPTIONS] BLOCK KEY=VALUE...' ;;
    inspect) echo 'Usage: fenwa inspect [OPTIONS] PLUGIN [TYPE]' ;;
    graph) printf 'Usage: fenwa graph [OPTIONS] [GRAPH]\n\nOptions:\n  --output FILE  It\n' ;;
    names) test "$*" = 'names blocks' && printf 'reader\na b\n'
        test "$*" = 'names settings reader' && printf 'delta_chg\nfake.active\nfake.value\n' ;;
esac
)");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    for (const char* name : {"a.so", "a.png", "a.svg", "a.toml"})
        folder.write(name, "");
    const Shell shell{"", folder.path().string(), ""};
    EXPECT_EQ(shell.offers({program, "inspect", "a"}), Words{"a.so"});
    EXPECT_EQ(shell.offers({program, "inspect", "a.so", ""}), Words{});
    EXPECT_EQ(shell.offers({program, "graph", "a"}), Words{"a.toml"});
    EXPECT_EQ(shell.offers({program, "graph", "--output", "a"}), (Words{"a.svg", "a.png"}));
    EXPECT_EQ(shell.offers({program, "set", ""}), (Words{"reader", "a\\ b"}));
    EXPECT_EQ(shell.offers({program, "set", "reader", ""}),
              (Words{"delta_chg=", "fake.active=", "fake.value="}));
    EXPECT_EQ(shell.offers({program, "set", "reader", "delta_chg", "=", "5", "fake.v"}),
              Words{"fake.value="});
    EXPECT_EQ(shell.offers({program, "set", "reader", "delta_chg", "=", ""}), Words{});
}

class CompletionInAShell : public testing::TestWithParam<std::pair<std::string, std::string>> {};

TEST_P(CompletionInAShell, WorksAndLeavesItAsItWas) {
    const Shell shell{GetParam().second, "", ""};
    EXPECT_EQ(shell.offers({fenwa, "run", "--color", "=", "a"}), (Words{"auto", "always"}));
    EXPECT_EQ(shell.offers({fenwa, "run", "--co"}), (Words{"--color", "--control"}));
    EXPECT_EQ(shell.offers({fenwa, "r"}), (Words{"run", "read"}));
    EXPECT_EQ(shell.offers({fenwa_camera, "start", "power-"}),
              (Words{"power-consumer", "power-status"}));
    for (const Words& words : {Words{fenwa, "run", ""}, Words{fenwa, "run", "--format", "=", "j"},
                               Words{fenwa_camera, "run", "--", "l"}}) {
        const auto [before, behind] = shell.state_around(words);
        EXPECT_EQ(before, behind);
    }
}

INSTANTIATE_TEST_SUITE_P(Where, CompletionInAShell,
                         testing::Values(std::pair{"NothingIsSet", ""},
                                         std::pair{"ThePackageIsLoaded",
                                                   "BASH_COMPLETION_COMPAT_DIR=/nowhere\n"
                                                   ". /usr/share/bash-completion/bash_completion"},
                                         std::pair{"UnsetVariablesAreErrors", "set -u"},
                                         std::pair{"ErrorsEndIt", "set -eu -o pipefail"},
                                         std::pair{"ExtendedPatternsAreOff", "shopt -u extglob"},
                                         std::pair{"ExtendedPatternsAreOn", "shopt -s extglob"},
                                         std::pair{"PatternsMustMatch", "shopt -s failglob"},
                                         std::pair{"PatternsMayVanish",
                                                   "shopt -s nullglob; set -f"},
                                         std::pair{"WordsEndElsewhere", "IFS=:-"},
                                         std::pair{"PosixIsMeant", "set -o posix"}),
                         [](const auto& shell) { return shell.param.first; });

TEST(CompletionOfWords, StaysWholeWhereReadlineDoesNotTakeThemApart) {
    const Shell shell{"COMP_WORDBREAKS=${COMP_WORDBREAKS//[=:]/}", "", ""};
    EXPECT_EQ(shell.offers({fenwa, "run", "--format=j"}), Words{"--format=json"});
    EXPECT_EQ(shell.offers({fenwa, "run", "--format", "j"}), Words{"json"});
}

}  // namespace
}  // namespace test
