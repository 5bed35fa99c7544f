#include "host/check/probe.hpp"

#include <gtest/gtest.h>

#include <sstream>

#include "framework/shared/log_mute.hpp"

namespace host {
namespace {

/// One block of the probe plug-in, built dry.
class ProbeTest : public testing::Test {
  protected:
    ProbeTest() {
        Graph plugins;
        plugins.plugins.push_back({"libprobe.so", {1, 1}});
        types_.load(plugins, {FENWA_TEST_PLUGINS}, diagnostics_);
        entry_.name = "probe";
        entry_.location = {2, 9};
        entry_.type = {"Probe", {3, 8}};
    }

    std::string mistakes() {
        std::ostringstream text;
        diagnostics_.print(text, false);
        return text.str();
    }

    common::Diagnostics diagnostics_{"graph.toml"};
    BlockTypes types_{nullptr};
    BlockEntry entry_;
};

TEST_F(ProbeTest, OfOneBlockSaysWhatIsWrongWithIt) {
    entry_.add({"throws", {4, 1}, true});
    entry_.add({"thrws_in", {5, 1}, std::string("setup")});
    const Fenwa::LogMute mute;
    Probe dry(entry_, types_, diagnostics_, Strictness::alone);
    ASSERT_TRUE(dry.build());
    dry.find_unread_keys();
    EXPECT_EQ(mistakes(),
              "graph.toml:4:1: error: block 'probe' (Probe): the key 'throws' must be a string, "
              "not the boolean true\n"
              "graph.toml:5:1: warning: Probe does not read the key 'thrws_in'\n"
              "help: did you mean 'throws_in'?\n"
              "graph.toml: 1 error, 1 warning\n");
    EXPECT_FALSE(dry.threw());
}

TEST_F(ProbeTest, TellsThatTheBlockThrew) {
    entry_.add({"throws_in", {4, 1}, std::string("setup")});
    const Fenwa::LogMute mute;
    Probe dry(entry_, types_, diagnostics_, Strictness::alone);
    EXPECT_FALSE(dry.build());
    EXPECT_EQ(mistakes(),
              "graph.toml:2:9: error: block 'probe' (Probe) threw in setup: thrown on purpose\n"
              "graph.toml: 1 error\n");
    EXPECT_TRUE(dry.threw());
}

}  // namespace
}  // namespace host
