#include "host/dry_construction.hpp"

#include <gtest/gtest.h>

#include <sstream>
#include <thread>

#include "fenwa/log.hpp"
#include "framework/shared/debug_data_store.hpp"
#include "tests/support/log_recorder.hpp"

namespace host {
namespace {

using Lines = std::vector<std::string>;

/// One block of the probe plug-in, built dry beside a host that listens to its own blocks.
class DryConstructionTest : public testing::Test {
  protected:
    DryConstructionTest() {
        Graph plugins;
        plugins.plugins.push_back({"libprobe.so", {1, 1}});
        types_.load(plugins, {FENWA_TEST_PLUGINS}, diagnostics_);
        entry_.name = "probe";
        entry_.where = {2, 9};
        entry_.type = {"Probe", {3, 8}};
        Fenwa::set_debug_listener(
            [this](const std::string& key, const Fenwa::DebugValue&) { set_.push_back(key); });
    }
    ~DryConstructionTest() override { Fenwa::set_debug_listener({}); }

    std::string mistakes() {
        std::ostringstream text;
        diagnostics_.print(text, false);
        return text.str();
    }

    support::LogRecorder log_;
    Lines set_;
    tool::Diagnostics diagnostics_{"graph.toml"};
    BlockTypes types_{nullptr};
    BlockEntry entry_;
};

TEST_F(DryConstructionTest, OfOneBlockIsNotHeardInARunningHost) {
    {
        const Silence silence(Silence::Scope::this_thread);
        DryConstruction dry(types_, diagnostics_, Strictness::alone);
        EXPECT_NE(dry.build(entry_).block, nullptr);
        std::thread([] { logger(4, "a running block"); }).join();
        EXPECT_EQ(log_.take(), Lines{"4 a running block"});
    }
    // Nor does it take the host's log and debug data away.
    logger(4, "afterwards");
    Fenwa::debug_data().set_value("afterwards", true);
    EXPECT_EQ(log_.take(), Lines{"4 afterwards"});
    EXPECT_EQ(set_, Lines{"afterwards"});
    EXPECT_EQ(mistakes(), "");
}

TEST_F(DryConstructionTest, OfOneBlockSaysWhatIsWrongWithIt) {
    entry_.add({"throws", {4, 1}, true});
    entry_.add({"thrws_in", {5, 1}, std::string("setup")});
    const Silence silence(Silence::Scope::this_thread);
    DryConstruction dry(types_, diagnostics_, Strictness::alone);
    EXPECT_NE(dry.build(entry_).block, nullptr);
    EXPECT_EQ(mistakes(),
              "graph.toml:4:1: error: block 'probe' (Probe): the key 'throws' must be a string, "
              "not the boolean true\n"
              "graph.toml:5:1: warning: no Probe reads the key 'thrws_in'\n"
              "help: did you mean 'throws_in'?\n"
              "graph.toml: 1 error, 1 warning\n");
    EXPECT_EQ(dry.throws(), 0U);
}

TEST_F(DryConstructionTest, CountsTheBlocksThatThrow) {
    entry_.add({"throws_in", {4, 1}, std::string("setup")});
    const Silence silence(Silence::Scope::this_thread);
    DryConstruction dry(types_, diagnostics_, Strictness::alone);
    EXPECT_EQ(dry.build(entry_).block, nullptr);
    EXPECT_EQ(mistakes(),
              "graph.toml:2:9: error: block 'probe' (Probe) threw in setup: thrown on purpose\n"
              "graph.toml: 1 error\n");
    EXPECT_EQ(dry.throws(), 1U);
}

}  // namespace
}  // namespace host
