#include <cerrno>
#include <memory>
#include <stdexcept>

#include "tests/support/configuration_recorder.hpp"
#include "tests/support/silent_bus_error.hpp"
#include "tests/unit/video/video_ready_fixture.hpp"

namespace {

using namespace ready_test;
using support::Settings;

const Settings signals{{"no_video_at_startup", true}};
const Settings stays_silent{{"no_video_at_startup", false}};

/// Looks at what a block makes of its unit when it is built.
class VideoReadyUnitTest : public VideoReadyTest {
  protected:
    /// The block never signals, whatever happens, and says so in its settings.
    void expect_silence() {
        EXPECT_EQ(settings(), stays_silent);
        EXPECT_EQ(start(), Journal{});
        EXPECT_EQ(run(), Journal{});
        rotate("rotation_vip0_in");
        EXPECT_EQ(run_woken(), Journal{});
        EXPECT_FALSE(block->woken());
        EXPECT_TRUE(pending());
    }
};

TEST_F(VideoReadyTest, HasTwoRotationInputsThatRunItAndAnEventPortThatItsConstructionDoesNotFire) {
    make();
    EXPECT_EQ((*block)->get_inport_names(), (Journal{"rotation_vip0_in", "rotation_vip1_in"}));
    for (const std::string& name : (*block)->get_inport_names()) {
        const Fenwa::InPortInternal* const port = (*block)->get_inport(name);
        EXPECT_NE(dynamic_cast<const Fenwa::InPort<int>*>(port), nullptr) << name;
        EXPECT_EQ(port->datatype().path(), "/prefix/well-known.i/int") << name;
        EXPECT_TRUE(port->triggers()) << name;
    }
    EXPECT_EQ((*block)->get_outport_names(), Journal{});
    EXPECT_EQ(Fenwa::HostAccess::eventport_names(**block), (Journal{"resend"}));
    EXPECT_EQ((*block)->get_name(), "ready");
    EXPECT_FALSE(block->woken());
    EXPECT_TRUE(pending());
}

TEST_F(VideoReadyTest, ReadsItsChannelWithoutADefault) {
    const auto recorder = std::make_shared<support::ConfigurationRecorder>();
    recorders.tools.reply_next(messages.reply("s", "enabled"));
    build(Fenwa::ConfigurationAccess::observed({{"channel", 3}}, recorder));
    EXPECT_EQ(recorder->reads, (Journal{"int channel"}));
    EXPECT_EQ(Fenwa::ConfigurationAccess::entries(Fenwa::HostAccess::configuration(**block)).size(),
              1U);
}

TEST_F(VideoReadyTest, NeedsAChannelBeforeItAsksTheBus) {
    try {
        block.emplace(recorders.tools, "ready", Fenwa::BlockConfiguration{});
        FAIL() << "built without a channel";
    } catch (const Fenwa::ConfigurationError& error) {
        EXPECT_EQ(error.key(), "channel");
        EXPECT_TRUE(error.missing());
    }
    for (const Fenwa::BlockConfiguration& config : std::initializer_list<Fenwa::BlockConfiguration>{
             {{"channel", {"0"}}}, {{"channel", 0.0}}, {{"channel", true}}})
        EXPECT_THROW(block.emplace(recorders.tools, "ready", config), Fenwa::ConfigurationError);
}

TEST_F(VideoReadyUnitTest, SignalsWhenItsUnitIsThere) {
    for (const char* unit_state : {"enabled", "enabled-runtime", "static", "disabled", "linked",
                                   "bad", "", "masked ", " masked", "MASKED", "Masked", "maske",
                                   "masked-runtim", "masked-runtime ", "MASKED-RUNTIME"}) {
        make(unit_state);
        EXPECT_EQ(settings(), signals) << unit_state;
        succeed_next();
        EXPECT_EQ(start(), (Journal{signal_of("0")})) << unit_state;
    }
}

TEST_F(VideoReadyUnitTest, SaysThatItsUnitIsMaskedAndStaysSilent) {
    for (const char* unit_state : {"masked", "masked-runtime"}) {
        make(unit_state);
        EXPECT_EQ(log.take(), (Lines{"4 video-ready.service is masked, skipping it"}));
        expect_silence();
    }
}

TEST_F(VideoReadyUnitTest, StaysSilentWithoutALineWhenItsUnitIsUnknown) {
    recorders.tools.throw_next(
        Fenwa::SDBusError("org.freedesktop.DBus.Error.FileNotFound", "no such unit", -ENOENT));
    build();
    expect_silence();
    recorders.tools.throw_next(support::SilentBusError());
    build();
    expect_silence();
}

TEST_F(VideoReadyUnitTest, SaysThatItsUnitsStateCannotBeRead) {
    recorders.tools.reply_next(messages.reply("i", 5));
    build();
    EXPECT_EQ(log.take(), (Lines{"1 Failed to parse status of video-ready.service: "
                                 "No such device or address"}));
    expect_silence();
    recorders.tools.reply_next(messages.reply(""));
    build();
    EXPECT_EQ(log.take(), (Lines{"1 Failed to parse status of video-ready.service: "
                                 "No such device or address"}));
    expect_silence();
}

TEST_F(VideoReadyUnitTest, SaysTheSameWhenThereIsNoReply) {
    recorders.tools.return_next();
    build();
    EXPECT_EQ(log.take(),
              (Lines{"1 Failed to parse status of video-ready.service: Invalid argument"}));
    expect_silence();
}

TEST_F(VideoReadyUnitTest, DoesNotBelieveAStateWhoseReadingFailed) {
    bus.make_up(support::MessageFunction::read, {-EPERM});
    make("masked");
    EXPECT_EQ(log.take(),
              (Lines{"1 Failed to parse status of video-ready.service: Operation not permitted"}));
    expect_silence();
}

TEST_F(VideoReadyUnitTest, TakesAResultOfZeroForAStateThatWasRead) {
    bus.change_results(support::MessageFunction::read, {0});
    make("enabled");
    EXPECT_EQ(settings(), signals);
}

TEST_F(VideoReadyUnitTest, LetsAnyOtherExceptionOutAndReleasesTheReply) {
    recorders.tools.throw_next(std::runtime_error("something else"),
                               messages.reply("s", "enabled"));
    EXPECT_THROW(build(), std::runtime_error);
    EXPECT_EQ(bus.take_journal(), (Journal{unit_query}));
    EXPECT_EQ(bus.replies_held(), 0U);
    recorders.tools.throw_next(5);
    EXPECT_THROW(build(), int);
    EXPECT_EQ(bus.take_journal(), (Journal{unit_query}));
}

TEST_F(VideoReadyUnitTest, ReleasesAReplyThatCameWithAFailure) {
    recorders.tools.throw_next(support::SilentBusError(), messages.reply("s", "enabled"));
    build();
    expect_silence();
}

TEST_F(VideoReadyUnitTest, HandsTheSameToTheFrameworkAtAnyTime) {
    make();
    EXPECT_EQ(settings(), signals);
    succeed_next();
    EXPECT_EQ(start(), (Journal{signal_of("0")}));
    EXPECT_EQ(settings(), signals);
    EXPECT_EQ(bus.take_journal(), Journal{});
}

}  // namespace
