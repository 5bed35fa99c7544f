#include <cerrno>
#include <tuple>

#include "tests/unit/video/on_screen_controls_fixture.hpp"

namespace {

using namespace controls_test;
using support::error_of;
using support::MakeMessage;
using support::reply_of;
using State = ControlsState;

constexpr int first_unknown_state = 11;

std::string state_name(int state) {
    const char* const names[] = {
        "Idle",          "AddingMatch",   "MatchAdded",      "QueryingOwner",
        "NoOwner",       "OwnerAppeared", "ListingFeatures", "FeaturesListed",
        "UpdatePending", "Synchronized",  "Stopped"};
    return state < first_unknown_state ? names[state] : "Unknown" + std::to_string(state);
}

const Feature swedish{"WDR0", "sv"};
const Feature mine{"WDR0", "en-us"};
const Feature published{"WDR1", "en-us"};

/// Puts one event before a block in every state.
class InEveryState : public OnScreenControlsTest {
  protected:
    /// One call of each kind is under way, the addition last.
    void reach(State before) {
        make(false);
        for (const State step : {State::Idle, State::MatchAdded, State::OwnerAppeared}) {
            state() = step;
            EXPECT_EQ(run().size(), 1U);
        }
        state() = State::FeaturesListed;
        listed() = {mine};
        EXPECT_EQ(run(), Journal{removal("WDR0")});
        state() = State::FeaturesListed;
        LayoutProbe::wdr(block()) = true;
        EXPECT_EQ(run(), Journal{first_addition});
        added() = {swedish, published};
        state() = before;
    }
    void look_at_state() {
        remark([this] { return static_cast<int>(state()); });
    }
};

// The callback of an event: the install callback of the match, or the one of a sending.
constexpr std::size_t installation = 0;
constexpr std::size_t signal = 1;
constexpr std::size_t question = 2;
constexpr std::size_t listing = 3;
constexpr std::size_t removing = 4;
constexpr std::size_t adding = 5;

/// An event whose effects do not depend on the state.
struct EventCase : support::NamedCase {
    std::size_t sending;
    MakeMessage message;
    Journal effects;             ///< before the state changes
    std::optional<State> after;  ///< and the block is woken; none: neither
    int result = 0;
    bool wakes = true;
    Features listed = {mine};
    Features added = {swedish, published};
};

class ControlsEventTest : public InEveryState,
                          public testing::WithParamInterface<std::tuple<EventCase, int>> {};

TEST_P(ControlsEventTest, IsRecordedBeforeTheBlockIsWoken) {
    const auto& [event, before] = GetParam();
    reach(static_cast<State>(before));
    look_at_state();
    (void)readings();
    Journal effects;
    for (const std::string& effect : event.effects)
        effects.push_back(effect + " | " + std::to_string(before));
    if (event.after && event.wakes)
        effects.push_back(fired + " | " + std::to_string(static_cast<int>(*event.after)));
    if (event.result != 0)
        effects.push_back("returns " + std::to_string(event.result));
    const support::Message message = event.message(messages);
    // No callback looks at its error argument.
    EXPECT_EQ(event.sending == installation
                  ? install(bus.sending(signal), message, support::denied)
                  : deliver(bus.sending(event.sending), message, support::denied),
              effects);
    if (event.sending == installation || event.sending >= removing) {
        EXPECT_EQ(readings().size(), event.effects.empty() ? 0U : 1U) << "only an error is read";
    }
    EXPECT_EQ(state(), event.after.value_or(static_cast<State>(before)));
    EXPECT_EQ(listed(), event.listed);
    EXPECT_EQ(added(), event.added);
}

MakeMessage owner_change(const char* name, const char* owner) {
    return [=](support::Messages& messages) { return messages.owner_change(name, "", owner); };
}
const MakeMessage done = reply_of("s", "more");
const MakeMessage refused = error_of("a.Error", "no");
const MakeMessage unnamed = support::error_body_of("u", 4U);
const std::string match_line = "1 Error when adding match for NameOwnerChanged: ";
const std::string question_line = "1 Error when retrieving NameOwner: ";
const std::string signal_line = "1 Error when handling NameOwnerChanged: ";
const std::string list_line = "1 Failed to call method ListAddedFeatures: ";
const std::string addition_line = "1 Failed to call method AddFeatures: ";
const std::string removal_line = "1 Failed to call method RemoveFeatures: ";
const std::string no_string = " failed to parse message: No such device or address";
const std::string released = "release #1 match";

const EventCase event_cases[] = {
    {{"InstalledMatch"}, installation, done, {}, State::MatchAdded},
    {{"RefusedMatch"}, installation, refused, {match_line + "no", released}, State::Idle},
    {{"SilentlyRefusedMatch"},
     installation,
     error_of("a.Error", nullptr),
     {match_line + "unknown", released},
     State::Idle},
    {{"Owner"}, question, reply_of("s", ":1.5"), {}, State::OwnerAppeared, 1},
    {{"EmptyAnswer"}, question, reply_of("s", ""), {}, State::NoOwner, 1},
    {{"AnswerThatThereIsNone"},
     question,
     error_of("org.freedesktop.DBus.Error.NameHasNoOwner", nullptr),
     {},
     State::NoOwner},
    {{"RefusedQuestion"}, question, refused, {question_line + "no"}, State::MatchAdded, 1},
    {{"SilentlyRefusedQuestion"},
     question,
     unnamed,
     {question_line + "unknown"},
     State::MatchAdded,
     -ENXIO},
    {{"UnreadableAnswer"},
     question,
     reply_of(""),
     {"2 check_name_owner_callback" + no_string},
     State::MatchAdded,
     -ENXIO,
     false},
    {{"Appearance"}, signal, owner_change(service_name, ":1.7"), {}, State::OwnerAppeared},
    {{"Loss"}, signal, owner_change(service_name, ""), {}, State::NoOwner},
    {{"ErrorInPlaceOfASignal"}, signal, refused, {signal_line + "no"}, {}, -1},
    {{"SilentErrorInPlaceOfASignal"},
     signal,
     error_of("a.Error", nullptr),
     {signal_line + "unknown"},
     {},
     -1},
    {{"UnreadableSignal"},
     signal,
     reply_of("ssu", service_name, "", 5U),
     {"2 NameOwnerChanged" + no_string},
     {},
     -ENXIO},
    {{"List"},
     listing,
     reply_of("a(sas)", 1U, "WDR5", 1U, "sv"),
     {},
     State::FeaturesListed,
     0,
     true,
     {{"WDR5", "sv"}}},
    {{"RefusedList"}, listing, refused, {list_line + "no"}, State::OwnerAppeared},
    {{"SilentlyRefusedList"}, listing, unnamed, {list_line + "unknown"}, State::OwnerAppeared},
    {{"UnreadableList"},
     listing,
     reply_of("s", "WDR5"),
     {"2 Failed to enter array: No such device or address"},
     {},
     -ENXIO},
    {{"Addition"},
     adding,
     done,
     {},
     State::Synchronized,
     0,
     true,
     {mine},
     {swedish, published, published}},
    {{"RefusedAddition"}, adding, refused, {addition_line + "no"}, State::FeaturesListed},
    {{"SilentlyRefusedAddition"},
     adding,
     unnamed,
     {addition_line + "unknown"},
     State::FeaturesListed},
    {{"Removal"}, removing, done, {}, State::Synchronized, 0, true, {mine}, {swedish}},
    {{"RefusedRemoval"}, removing, refused, {removal_line + "no"}, State::FeaturesListed},
    {{"SilentlyRefusedRemoval"},
     removing,
     unnamed,
     {removal_line + "unknown"},
     State::FeaturesListed},
};

INSTANTIATE_TEST_SUITE_P(InEveryState, ControlsEventTest,
                         testing::Combine(testing::ValuesIn(event_cases),
                                          testing::Range(0, first_unknown_state + 2)),
                         [](const auto& of) {
                             return std::string(std::get<0>(of.param).name) +
                                    state_name(std::get<1>(of.param));
                         });

/// A state, the call of a run in it, the line where that cannot be sent, and the state that the
/// line is written in.
struct StepCase {
    State after;
    std::string call;
    std::string line;
    State logged_in;
};

class ControlsStateTest : public InEveryState, public testing::WithParamInterface<int> {
  protected:
    void SetUp() override { reach(before()); }

    [[nodiscard]] static State before() { return static_cast<State>(GetParam()); }
    static std::optional<StepCase> step() {
        switch (before()) {
            case State::Idle:
                return {{State::AddingMatch, owner_match,
                         "1 Failed to add match for NameOwnerChanged: ", State::Idle}};
            case State::MatchAdded:
                return {{State::QueryingOwner, owner_query,
                         "1 Failed to call method GetNameOwner: ", State::MatchAdded}};
            case State::OwnerAppeared:
                return {{State::ListingFeatures, list_query, list_line, State::ListingFeatures}};
            case State::FeaturesListed:
                return {
                    {State::UpdatePending, first_addition, addition_line, State::FeaturesListed}};
            default:
                return {};
        }
    }
};

TEST_P(ControlsStateTest, TakesOneStepInARun) {
    look_at_state();
    EXPECT_EQ(run(),
              step() ? Journal{step()->call + " | " + std::to_string(GetParam())} : Journal{});
    EXPECT_EQ(state(), step() ? step()->after : before());
}

TEST_P(ControlsStateTest, TakesTheStepAlsoWhenItsCallCannotBeSent) {
    if (!step())
        return;
    pending() = {"earlier", "sv"};
    look_at_state();
    bus.answer_next({-EPERM});
    EXPECT_EQ(run(), (Journal{step()->call + " | " + std::to_string(GetParam()),
                              step()->line + "Operation not permitted | " +
                                  std::to_string(static_cast<int>(step()->logged_in))}));
    EXPECT_EQ(state(), step()->after);
    EXPECT_EQ(pending(), Feature("earlier", "sv"));
    EXPECT_FALSE(before() == State::Idle ? match_held() : call_pending());
}

TEST_P(ControlsStateTest, IsStoppedWithoutAWakeUp) {
    added().clear();
    EXPECT_EQ(stop(),
              (Journal{"release #1 match", "release #5 AddFeatures", "release #2 GetNameOwner",
                       "release #3 ListAddedFeatures", "release #4 RemoveFeatures"}));
    EXPECT_EQ(state(), State::Stopped);
}

TEST_P(ControlsStateTest, IsWokenByTheOwnersOfOtherNamesUnlessStopped) {
    for (const char* other : {"com.tarlo.Onscreencontrols", "com.tarlo.Onscreencontrols10",
                              "com.tarlo.onscreencontrols1", ":1.5", ""}) {
        EXPECT_EQ(change_owner(other, ":1.7"), before() == State::Stopped ? Journal{} : wake_up);
        EXPECT_EQ(state(), before()) << other;
    }
}

INSTANTIATE_TEST_SUITE_P(States, ControlsStateTest, testing::Range(0, first_unknown_state + 2),
                         [](const auto& of) { return state_name(of.param); });

}  // namespace
