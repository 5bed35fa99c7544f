#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "fenwa/sdbus_error.hpp"
#include "tests/support/block_driver.hpp"
#include "tests/support/layout_probe.hpp"
#include "tests/support/settings.hpp"

namespace ready_test {

using blocks::LayoutProbe;
using blocks::VideoReady;
using Journal = std::vector<std::string>;
using Lines = std::vector<std::string>;

// What the block sends.
inline const std::string unit_query =
    "blocking call org.freedesktop.systemd1 /org/freedesktop/systemd1 "
    "org.freedesktop.systemd1.Manager GetUnitFileState(s \"video-ready.service\")";
inline std::string signal_of(const std::string& channel) {
    return "blocking call com.tarlo.VideoReady1 /com/tarlo/VideoReady1/" + channel +
           " com.tarlo.VideoReady1 SignalVideoReady(s \"vipd\")";
}

class VideoReadyTest : public support::BlockTest {
  protected:
    /// Builds a block whose unit is in this state.
    void make(const char* unit_state = "enabled", int channel = 0) {
        recorders.tools.reply_next(messages.reply("s", unit_state));
        build({{"channel", channel}});
    }
    /// Builds a block; how the look at the unit ends is the test's to foresee.
    void build(const Fenwa::BlockConfiguration& config = {{"channel", 0}}) {
        block.emplace(recorders.tools, "ready", config);
        EXPECT_EQ(bus.take_journal(), (Journal{unit_query}));
        EXPECT_EQ(bus.replies_held(), 0U);
        EXPECT_FALSE(block->woken());
    }

    // What the block sends in a start, in a run for another reason than its ports, and in one
    // because of them.
    Journal start() {
        (*block)->start();
        return bus.take_journal();
    }
    Journal run() {
        EXPECT_TRUE((*block)->run());
        return bus.take_journal();
    }
    Journal run_woken() {
        EXPECT_TRUE(block->run_woken());
        return bus.take_journal();
    }

    /// The next call of the service succeeds.
    void succeed_next() { recorders.tools.reply_next(messages.reply("")); }
    /// The next call of the service fails.
    void fail_next() {
        recorders.tools.throw_next(Fenwa::SDBusError("org.freedesktop.DBus.Error.ServiceUnknown",
                                                     "nobody there", -EHOSTUNREACH));
    }
    void expect_failure_line() {
        EXPECT_EQ(log.take(), (Lines{"2 Failed to signal video enabled to : "
                                     "org.freedesktop.DBus.Error.ServiceUnknown: nobody there"}));
    }

    /// A new value has come for an input.
    void rotate(const std::string& port) {
        Fenwa::HostAccess::notify(*(*block)->get_inport(port), **block);
    }

    [[nodiscard]] support::Settings settings() {
        return support::settings_of((*block)->setup({{"no_video_at_startup", 5}, {"more", true}}));
    }
    [[nodiscard]] bool pending() { return LayoutProbe::pending(**block); }

    std::optional<support::BlockDriver<VideoReady>> block;
};

}  // namespace ready_test
