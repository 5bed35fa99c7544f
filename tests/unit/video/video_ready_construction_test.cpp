#include <cerrno>
#include <stdexcept>

#include "tests/support/silent_bus_error.hpp"
#include "tests/unit/video/video_ready_fixture.hpp"

namespace {

using namespace ready_test;

const std::string released = "release the reply to GetUnitFileState";

TEST_F(VideoReadyTest, HasTwoRotationInputsThatRunIt) {
    make();
    for (const std::string& name : block().get_inport_names()) {
        const Fenwa::InPortInternal* const port = block().get_inport(name);
        EXPECT_NE(dynamic_cast<const Fenwa::InPort<int>*>(port), nullptr) << name;
        EXPECT_EQ(port->datatype().path(), "/prefix/well-known.i/int") << name;
        EXPECT_TRUE(port->triggers()) << name;
    }
    EXPECT_EQ(support::settings_of(Fenwa::HostAccess::configuration(block())).size(), 1U);
}

TEST_F(VideoReadyTest, NeedsAChannelBeforeItAsksTheBus) {
    expect_refused({}, "channel", true);
    for (const Fenwa::BlockConfiguration& config : std::initializer_list<Fenwa::BlockConfiguration>{
             {{"channel", {"0"}}}, {{"channel", 0.0}}, {{"channel", true}}})
        expect_refused(config, "channel");
}

/// How the look at the unit ends, its effects, and whether the block signals then.
struct UnitCase : support::NamedCase {
    std::function<void(support::Recorders&)> end_query;
    Journal effects = {};
    bool signals = false;
};

std::function<void(support::Recorders&)> state_is(const char* state) {
    return [=](auto& with) { with.tools.reply_next(with.messages.reply("s", state)); };
}

class VideoReadyUnitTest : public VideoReadyTest, public testing::WithParamInterface<UnitCase> {};

TEST_P(VideoReadyUnitTest, DecidesWhetherTheBlockEverSignals) {
    GetParam().end_query(recorders);
    make_with(GetParam().effects);
    const bool signals = GetParam().signals;
    EXPECT_EQ(settings(), (Settings{{"no_video_at_startup", signals}}));
    if (signals)
        succeed_next();
    EXPECT_EQ(start(), signals ? Journal{signal_sent} : Journal{});
    EXPECT_EQ(settings(), (Settings{{"no_video_at_startup", signals}}));
    EXPECT_EQ(pending(), !signals);
    EXPECT_EQ(run(), only_looks);
    rotate("rotation_vip0_in");
    if (signals)
        succeed_next();
    EXPECT_EQ(run_woken(), signals ? (Journal{look_at_0, signal_sent}) : Journal{look_at_0});
}

const std::string masked = "4 video-ready.service is masked, skipping it";
const std::string unreadable = "1 Failed to parse status of video-ready.service: ";
const std::string nothing_there = unreadable + "No such device or address";

const UnitCase unit_cases[] = {
    {{"Enabled"}, state_is("enabled"), {released}, true},
    {{"Masked"}, state_is("masked"), {masked, released}},
    {{"Unknown"},
     [](auto& with) { with.tools.throw_next(Fenwa::SDBusError("a.Error", "no unit", -ENOENT)); }},
    {{"UnknownWithAReply"},
     [](auto& with) {
         with.tools.throw_next(support::SilentBusError(), with.messages.reply("s", "enabled"));
     },
     {released}},
    {{"NoReply"}, [](auto& with) { with.tools.return_next(); }, {unreadable + "Invalid argument"}},
    {{"NoText"},
     [](auto& with) { with.tools.reply_next(with.messages.reply("i", 5)); },
     {nothing_there, released}},
    {{"EmptyReply"},
     [](auto& with) { with.tools.reply_next(with.messages.reply("")); },
     {nothing_there, released}},
    {{"FailingRead"},
     [](auto& with) {
         state_is("masked")(with);
         with.bus.make_up(support::MessageFunction::read, {-EPERM});
     },
     {unreadable + "Operation not permitted", released}},
    {{"ReadWithAResultOfZero"},
     [](auto& with) {
         state_is("enabled")(with);
         with.bus.change_results(support::MessageFunction::read, {0});
     },
     {released},
     true},
};

INSTANTIATE_TEST_SUITE_P(States, VideoReadyUnitTest, testing::ValuesIn(unit_cases),
                         support::case_name<UnitCase>);

TEST_F(VideoReadyTest, LetsAnyOtherExceptionOutOfItsConstructionAndReleasesTheReply) {
    const Fenwa::BlockConfiguration config{{"channel", 0}};
    recorders.tools.throw_next(std::runtime_error("something else"),
                               messages.reply("s", "enabled"));
    EXPECT_THROW(build("ready", config), std::runtime_error);
    EXPECT_EQ(bus.replies_held(), 0U);
    recorders.tools.throw_next(5);
    EXPECT_THROW(build("ready", config), int);
    EXPECT_EQ(bus.take_journal(), Journal(2, unit_query));
}

}  // namespace
