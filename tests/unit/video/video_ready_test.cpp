// VideoReady as its users see it. The order of its effects is in video_ready_construction_test.cpp
// and video_ready_signal_test.cpp.
#include "src/blocks/video/video_ready.hpp"

#include <gtest/gtest.h>

#include <optional>
#include <utility>

#include "fenwa/testkit/testkit.hpp"

namespace {

using Fenwa::testkit::BlockDriver;
using Fenwa::testkit::Call;
using Fenwa::testkit::LogLine;
using Fenwa::testkit::LogRecorder;
using Fenwa::testkit::ScriptedTools;
using Fenwa::testkit::Setting;

using Calls = std::vector<Call>;
using Lines = std::vector<LogLine>;

const Call unit_query{"org.freedesktop.systemd1", "/org/freedesktop/systemd1",
                      "org.freedesktop.systemd1.Manager", "GetUnitFileState",
                      R"(s "video-ready.service")"};

Call signal_of(const std::string& channel) {
    return {"com.tarlo.VideoReady1", "/com/tarlo/VideoReady1/" + channel, "com.tarlo.VideoReady1",
            "SignalVideoReady", R"(s "vipd")"};
}

class VideoReadyBlockTest : public testing::Test {
  protected:
    /// Builds a block of channel 0 whose unit is in this state.
    BlockDriver<blocks::VideoReady>& build(const char* unit_state, int channel = 0) {
        tools.answer("GetUnitFileState", {"s", unit_state});
        tools.answer("SignalVideoReady");
        return block.emplace(tools, Fenwa::BlockConfiguration{{"channel", channel}});
    }

    ScriptedTools tools;
    LogRecorder log;
    std::optional<BlockDriver<blocks::VideoReady>> block;
};

class VideoReadyStateTest : public VideoReadyBlockTest,
                            public testing::WithParamInterface<const char*> {};

TEST_P(VideoReadyStateTest, LetsTheBlockSignalUnlessItIsMasked) {
    build(GetParam());
    EXPECT_EQ(tools.take_calls(), Calls{unit_query});
    EXPECT_EQ(block->setup(), (std::vector<Setting>{{"no_video_at_startup", true}}));
    block->start();
    EXPECT_EQ(tools.take_calls(), Calls{signal_of("0")});
    EXPECT_EQ(log.take(), Lines{});
}

INSTANTIATE_TEST_SUITE_P(States, VideoReadyStateTest,
                         testing::Values("enabled", "enabled-runtime", "static", "disabled", "bad",
                                         "", "masked ", " masked", "MASKED", "maske",
                                         "masked-runtim", "masked-runtime ", "MASKED-RUNTIME"));

TEST_F(VideoReadyBlockTest, NeverSignalsWhenItsUnitIsMasked) {
    for (const char* state : {"masked", "masked-runtime"}) {
        build(state);
        EXPECT_EQ(log.take(), (Lines{{4, "video-ready.service is masked, skipping it"}}));
        EXPECT_EQ(block->setup(), (std::vector<Setting>{{"no_video_at_startup", false}}));
        block->start();
        block->feed("rotation_vip0_in", 90);
        EXPECT_TRUE(block->run());
        EXPECT_EQ(tools.take_calls(), Calls{unit_query});
    }
}

TEST_F(VideoReadyBlockTest, NamesTheObjectAfterItsChannel) {
    for (const auto& [channel, text] :
         {std::pair{0, "0"}, {12, "12"}, {2147483647, "2147483647"}}) {
        build("enabled", channel).start();
        EXPECT_EQ(tools.take_calls(), (Calls{unit_query, signal_of(text)}));
    }
}

TEST_F(VideoReadyBlockTest, SignalsAfterEachRotationAndNotInBetween) {
    build("enabled").start();
    (void)tools.take_calls();
    for (const char* input : {"rotation_vip0_in", "rotation_vip1_in"}) {
        block->feed(input, 0);
        EXPECT_TRUE(block->run());
        EXPECT_EQ(tools.take_calls(), Calls{signal_of("0")}) << input;
        EXPECT_FALSE(block->run());
    }
}

TEST_F(VideoReadyBlockTest, SignalsUntilACallSucceeds) {
    build("enabled");
    (void)tools.take_calls();
    tools.refuse("SignalVideoReady", "a.Error", "nobody there");
    block->start();
    for (int run = 0; run < 2; ++run)
        EXPECT_TRUE(block->run());
    tools.answer("SignalVideoReady");
    EXPECT_TRUE(block->run());
    EXPECT_FALSE(block->run());
    EXPECT_EQ(tools.take_calls(), Calls(4, signal_of("0")));
    EXPECT_EQ(log.take(),
              Lines(3, {2, "Failed to signal video enabled to : a.Error: nobody there"}));
}

TEST_F(VideoReadyBlockTest, ReadsItsSignalsArgumentsOnARealBus) {
    Fenwa::testkit::PrivateBus bus;
    Fenwa::testkit::FakeService units(bus, "org.freedesktop.systemd1");
    Fenwa::testkit::FakeService video(bus, "com.tarlo.VideoReady1");
    units.answer("GetUnitFileState", {"s", "enabled"});
    video.answer("SignalVideoReady");
    BlockDriver<blocks::VideoReady> ready(bus.tools(), {{"channel", 3}});
    ready.start();
    EXPECT_EQ(units.take_calls(), Calls{unit_query});
    EXPECT_EQ(video.take_calls(), Calls{signal_of("3")});
    EXPECT_EQ(log.take(), Lines{});
}

}  // namespace
