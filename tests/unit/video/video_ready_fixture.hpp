#pragma once

#include <string>

#include "fenwa/sdbus_error.hpp"
#include "tests/unit/block_fixture.hpp"

extern template class support::BlockFixture<blocks::VideoReady>;

namespace ready_test {

using blocks::VideoReady;
using support::Journal;
using support::Settings;

// The calls of the block.
inline const std::string unit_query =
    "blocking call org.freedesktop.systemd1 /org/freedesktop/systemd1 "
    "org.freedesktop.systemd1.Manager GetUnitFileState(s \"video-ready.service\")";
inline std::string signal_of(const std::string& channel) {
    return "blocking " + support::service_call("com.tarlo.VideoReady1",
                                               "/com/tarlo/VideoReady1/" + channel,
                                               "SignalVideoReady(s \"vipd\")");
}
inline const std::string signal_sent = signal_of("0");

inline const std::string look_at_0 = "look at rotation_vip0_in";
inline const std::string look_at_1 = "look at rotation_vip1_in";
/// The effects of a run that nothing asks for.
inline const Journal only_looks{look_at_0, look_at_1};

class VideoReadyTest : public support::BlockFixture<VideoReady> {
  protected:
    /// Builds a block whose unit is in this state.
    void make(const std::string& unit_state = "enabled", int channel = 0) {
        recorders.tools.reply_next(messages.reply("s", unit_state.c_str()));
        make_with({"release the reply to GetUnitFileState"}, channel);
    }
    /// Builds a block whose look at the unit ends as foreseen and then has these effects.
    void make_with(Journal effects, int channel = 0) {
        build("ready", support::observed({{"channel", channel}}));
        effects.insert(effects.begin(), {"input rotation_vip0_in", "input rotation_vip1_in",
                                         "event resend", "int channel", unit_query});
        EXPECT_EQ(bus.replies_held(), 0U);
        EXPECT_EQ(take(), effects);
    }
    /// Builds a block that has signalled.
    void settle() {
        make();
        succeed_next();
        EXPECT_EQ(start(), Journal{signal_sent});
        EXPECT_FALSE(pending());
    }

    /// The next call of the service succeeds.
    void succeed_next() { recorders.tools.reply_next(messages.reply("")); }
    /// The next call of the service fails.
    void fail_next() {
        recorders.tools.throw_next(Fenwa::SDBusError("a.Error", "nobody there", -EHOSTUNREACH));
    }

    /// A new value has come for an input.
    void rotate(const std::string& port) {
        Fenwa::HostAccess::notify(*block().get_inport(port), block());
    }

    [[nodiscard]] Settings settings() {
        return support::settings_of(block().setup({{"no_video_at_startup", 5}, {"more", true}}));
    }
    [[nodiscard]] bool pending() { return LayoutProbe::pending(block()); }
};

}  // namespace ready_test
