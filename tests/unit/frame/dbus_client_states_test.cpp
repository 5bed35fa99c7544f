#include <tuple>

#include "tests/unit/frame/following_block.hpp"

namespace {

using namespace client_test;

constexpr int first_unknown_state = 8;

std::string state_name(int state) {
    const char* const names[] = {"Idle",    "AddingMatch",   "MatchAdded", "QueryingOwner",
                                 "NoOwner", "OwnerAppeared", "Running",    "Stopped"};
    return state < first_unknown_state ? names[state] : "Unknown" + std::to_string(state);
}

const auto every_state = testing::Range(0, first_unknown_state + 2);

/// A client that has asked for the owner, put into any state.
class DBusClientInStateTest : public DBusClientTest {
  protected:
    void begin(int state) {
        ask();
        LayoutProbe::state(block()) = before_ = static_cast<OwnerState>(state);
        remark_fires();
    }
    /// Another thread may run the client as soon as the port is fired, in the state of that moment.
    void remark_fires() {
        journal.remark_with([this](const std::string& entry) {
            return entry.starts_with("fire")
                       ? " in state " + std::to_string(static_cast<int>(state()))
                       : "";
        });
    }
    /// The effects of a wake-up that a stopped client ignores.
    [[nodiscard]] Journal wake_up_unless_stopped() const {
        if (before_ == OwnerState::Stopped)
            return {};
        return {"fire event_port in state " + std::to_string(static_cast<int>(before_))};
    }

    OwnerState before_ = OwnerState::Idle;
};

enum class Callback { installed, answered, changed };

/// A message for a client, and its effects, which are the same in every state.
struct Arrival : NamedCase {
    Callback callback;
    MakeMessage message;
    Journal effects;
    std::optional<OwnerState> after;  ///< none if the state stays
};

template <class... Values>
MakeMessage change_of(const char* types, Values... values) {
    return [=](Messages& messages) {
        return messages.signal("/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged",
                               types, values...);
    };
}

Arrival arrival(const char* name, Callback callback, const MakeMessage& message,
                const Journal& effects, std::optional<OwnerState> after) {
    return {name, callback, message, effects, after};
}

const Arrival arrivals[] = {
    arrival("TakesAnInstalledMatch", Callback::installed, reply_of("s", "more"),
            {"fire event_port in state 2"}, OwnerState::MatchAdded),
    arrival("TakesARefusedMatch", Callback::installed, error_of("com.example.Error", "no"),
            {"1 Error when adding match for NameOwnerChanged: no", "release #1 match",
             "fire event_port in state 0"},
            OwnerState::Idle),
    arrival("TakesAMatchThatIsRefusedWithoutAText", Callback::installed,
            error_of("com.example.Error", nullptr),
            {"1 Error when adding match for NameOwnerChanged: unknown", "release #1 match",
             "fire event_port in state 0"},
            OwnerState::Idle),
    arrival("TakesAnOwnerAsTheAnswer", Callback::answered, reply_of("s", ":1.5"),
            {"fire event_port in state 5", returns(1)}, OwnerState::OwnerAppeared),
    arrival("TakesAnEmptyAnswer", Callback::answered, reply_of("s", ""),
            {"fire event_port in state 4", returns(1)}, OwnerState::NoOwner),
    arrival("TakesTheAnswerThatThereIsNoOwner", Callback::answered,
            error_of("org.freedesktop.DBus.Error.NameHasNoOwner", "nobody"),
            {"fire event_port in state 4"}, OwnerState::NoOwner),
    arrival("TakesARefusedQuestion", Callback::answered, error_of("com.example.Error", "no"),
            {"1 Error when retrieving NameOwner: no", "fire event_port in state 2", returns(1)},
            OwnerState::MatchAdded),
    arrival("TakesAQuestionThatIsRefusedWithoutAText", Callback::answered, error_body_of("u", 4U),
            {"1 Error when retrieving NameOwner: unknown", "fire event_port in state 2",
             returns(-ENXIO)},
            OwnerState::MatchAdded),
    arrival("IsNotWokenByAnUnreadableAnswer", Callback::answered, reply_of("u", 5U),
            {"2 check_name_owner_callback failed to parse message: No such device or address",
             returns(-ENXIO)},
            OwnerState::MatchAdded),
    arrival("HearsThatItsServiceHasAnOwner", Callback::changed,
            change_of("sss", followed_name, "", ":1.7"), {"fire event_port in state 5"},
            OwnerState::OwnerAppeared),
    arrival("HearsThatItsServiceHasNoOwner", Callback::changed,
            change_of("sss", followed_name, "", ""), {"fire event_port in state 4"},
            OwnerState::NoOwner),
    arrival(
        "RefusesAnUnreadableSignal", Callback::changed, change_of("ssu", followed_name, "", 5U),
        {"2 NameOwnerChanged failed to parse message: No such device or address", returns(-ENXIO)},
        std::nullopt),
    arrival("RefusesAnErrorWhereASignalShouldBe", Callback::changed,
            error_of("com.example.Error", "no"),
            {"1 Error when handling NameOwnerChanged: no", returns(-1)}, std::nullopt),
    arrival("RefusesAnErrorWithoutAText", Callback::changed, error_of("com.example.Error", nullptr),
            {"1 Error when handling NameOwnerChanged: unknown", returns(-1)}, std::nullopt),
    arrival("RefusesAnErrorWithTheBodyOfASignal", Callback::changed,
            error_body_of("sss", followed_name, "", ":1.5"),
            {"1 Error when handling NameOwnerChanged: com.example.Followed", returns(-1)},
            std::nullopt),
};

class DBusClientArrivalTest : public DBusClientInStateTest {
  protected:
    void expect_effects(int state_before, const Arrival& arrival,
                        sd_bus_error error = SD_BUS_ERROR_NULL) {
        begin(state_before);
        const Message message = arrival.message(messages);
        const Sending& sending = bus.sending(arrival.callback == Callback::answered ? 2 : 1);
        EXPECT_EQ(arrival.callback == Callback::installed ? install(sending, message, error)
                                                          : deliver(sending, message, error),
                  arrival.effects);
        EXPECT_EQ(state(), arrival.after.value_or(before_));
    }
};

class InEveryState : public DBusClientArrivalTest,
                     public testing::WithParamInterface<std::tuple<int, Arrival>> {};

TEST_P(InEveryState, HasTheSameEffects) {
    expect_effects(std::get<int>(GetParam()), std::get<Arrival>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(DBusClient, InEveryState,
                         testing::Combine(every_state, testing::ValuesIn(arrivals)),
                         [](const auto& row) {
                             return std::get<1>(row.param).name +
                                    ("In" + state_name(std::get<0>(row.param)));
                         });

class WithASetErrorArgument : public DBusClientArrivalTest,
                              public testing::WithParamInterface<Arrival> {};

TEST_P(WithASetErrorArgument, HasTheSameEffects) {
    expect_effects(static_cast<int>(OwnerState::QueryingOwner), GetParam(), denied);
}

INSTANTIATE_TEST_SUITE_P(DBusClient, WithASetErrorArgument, testing::ValuesIn(arrivals),
                         case_name<Arrival>);

class DBusClientInEveryStateTest : public DBusClientInStateTest,
                                   public testing::WithParamInterface<int> {
  protected:
    void SetUp() override { begin(GetParam()); }
};

TEST_P(DBusClientInEveryStateTest, IsWokenByTheOwnersOfOtherNamesUnlessStopped) {
    EXPECT_EQ(change_owner("com.example.Other", ":1.7"), wake_up_unless_stopped());
    EXPECT_EQ(state(), before_);
}

TEST_P(DBusClientInEveryStateTest, IsWokenUnlessStopped) {
    EXPECT_EQ(effects_of([this] { block().wake(); }), wake_up_unless_stopped());
    EXPECT_EQ(state(), before_);
}

TEST_P(DBusClientInEveryStateTest, IsStoppedBeforeItGivesItsSlotsUpAndWithoutAWakeUp) {
    remark([this] { return static_cast<int>(state()); });
    EXPECT_EQ(stop(), (Journal{"release #1 match | 7", "release #2 GetNameOwner | 7"}));
}

TEST_P(DBusClientInEveryStateTest, TakesOneStepInARun) {
    const auto [after, effects] = [this]() -> std::pair<OwnerState, Journal> {
        switch (before_) {
            case OwnerState::Idle:
                return {OwnerState::AddingMatch, {owner_match}};
            case OwnerState::MatchAdded:
                return {OwnerState::QueryingOwner, {"release #2 GetNameOwner", question}};
            case OwnerState::OwnerAppeared:
                return {OwnerState::Running, first_work};
            case OwnerState::Running:
                return {OwnerState::Running, later_work};
            default:
                return {before_, {}};
        }
    }();
    EXPECT_EQ(run(), effects);
    EXPECT_EQ(state(), after);
}

INSTANTIATE_TEST_SUITE_P(States, DBusClientInEveryStateTest, every_state,
                         [](const auto& row) { return state_name(row.param); });

}  // namespace
