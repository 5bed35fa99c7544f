#include "host/runtime/bus_interposer.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <utility>

#include "common/bus/bus.hpp"
#include "common/bus/callback.hpp"
#include "common/bus/private_bus.hpp"
#include "host/output/current_block.hpp"

namespace host {
namespace {

using Words = std::vector<std::string>;

/// A callback of blocks, and what it was given.
struct Heard {
    int on_answer(sd_bus_message& message) {
        ++times;
        const sd_bus_error* const given = sd_bus_message_get_error(&message);
        error = given == nullptr ? "" : given->name;
        block = CurrentBlock::name() == nullptr ? "" : *CurrentBlock::name();
        own_userdata =
            own_userdata && sd_bus_get_current_userdata(sd_bus_message_get_bus(&message)) == this;
        return returns;
    }

    int times = 0;
    int returns = 0;
    std::string error;
    std::string block;         ///< the current one during the callback
    bool own_userdata = true;  ///< also for sd-bus
};

constexpr auto on_answer = common::callback<&Heard::on_answer>;

int on_signal(sd_bus_message* /*message*/, void* /*userdata*/, sd_bus_error* /*error*/) {
    return 0;
}

/// A tapped connection, and a peer that replies when the test asks for it.
class BusInterposerTest : public testing::Test {
  protected:
    explicit BusInterposerTest(const std::string& xml = {}) : daemon_({{}, {}, {}, xml}) {
        common::own_name(*peer_, "com.example.Peer");
        interposer_.on_limit([this](const std::string* block, const std::string& text) {
            limits_.push_back((block == nullptr ? "nobody" : *block) + ": " + text);
        });
        common::check(sd_bus_add_filter(peer_.get(), nullptr,
                                        common::callback<&BusInterposerTest::on_call>, this),
                      "filter");
    }

    int on_call(sd_bus_message& message) {
        if (sd_bus_message_is_method_call(&message, "com.example.Peer1", nullptr) > 0)
            calls_.emplace_back(sd_bus_message_ref(&message));
        return 1;
    }

    /// As block "b", an asynchronous call to the peer. @returns what sd-bus returned.
    int call(sd_bus_slot** slot, const char* path = "/x") {
        const CurrentBlock current(block_, "run");
        return sd_bus_call_method_async(bus_.get(), slot, "com.example.Peer", path,
                                        "com.example.Peer1", "Ask", on_answer, &heard_, "s", "?");
    }
    void send_without_callback() {
        const CurrentBlock current(block_, "run");
        sd_bus_call_method_async(bus_.get(), nullptr, "com.example.Peer", "/x", "com.example.Peer1",
                                 "Ask", nullptr, nullptr, "s", "?");
    }

    /// Serves both ends until nothing has come for a while that is long enough for the daemon.
    void settle() {
        // The daemon answers after all that was sent before.
        for (sd_bus* bus : {bus_.get(), peer_.get(), bus_.get()}) {
            common::check(sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                             "org.freedesktop.DBus", "GetId", nullptr, nullptr, ""),
                          "GetId");
            while (sd_bus_process(bus, nullptr) > 0) {
            }
        }
    }

    /// Expects that nothing is unanswered any more, and that the callback was called so often.
    void answer_all(int times) {
        settle();
        for (const common::MessagePtr& asked : calls_)
            sd_bus_reply_method_return(asked.get(), "");
        calls_.clear();
        settle();
        EXPECT_EQ(interposer_.unanswered(), 0U);
        EXPECT_EQ(heard_.times, times);
    }

    common::PrivateBus daemon_;
    common::BusPtr bus_ = common::open_bus(daemon_.address(), std::chrono::seconds(10));
    common::BusPtr peer_ = common::open_bus(daemon_.address(), std::chrono::seconds(10));
    BusInterposer interposer_{*bus_};
    std::string block_ = "b";
    Heard heard_;
    std::vector<common::MessagePtr> calls_;
    Words limits_;
};

TEST_F(BusInterposerTest, CallIsUnansweredUntilItsAnswerCame) {
    common::SlotPtr slot;
    EXPECT_GT(call(slot.out()), 0);
    EXPECT_EQ(sd_bus_slot_get_userdata(slot.get()), &heard_);
    EXPECT_EQ(interposer_.unanswered(), 1U);
    settle();
    EXPECT_EQ(interposer_.unanswered(), 1U);
    answer_all(1);
    EXPECT_EQ(heard_.error, "");
    EXPECT_EQ(heard_.block, "b");
    EXPECT_TRUE(heard_.own_userdata);
}

TEST_F(BusInterposerTest, FloatingCallIsCountedAlsoWhenItsCallbackReturnsAnError) {
    for (const int returned : {0, -EINVAL}) {
        heard_ = {};
        heard_.returns = returned;
        EXPECT_GT(call(nullptr), 0);
        EXPECT_EQ(interposer_.unanswered(), 1U);
        answer_all(1);
    }
}

TEST_F(BusInterposerTest, CallIsUnansweredForTheDaemonAlsoWhenItsSlotIsGivenUp) {
    common::SlotPtr slot;
    EXPECT_GT(call(slot.out()), 0);
    slot.reset();
    EXPECT_EQ(interposer_.unanswered(), 1U);
    answer_all(0);
}

TEST_F(BusInterposerTest, CallsAreFollowedAgainAfterSignalsThatNobodyHadToSee) {
    common::SlotPtr match;
    common::check(sd_bus_match_signal(bus_.get(), match.out(), nullptr, "/x", "com.example.Peer1",
                                      "News", on_signal, nullptr),
                  "match");
    for (int i = 0; i < 2; ++i) {
        common::SlotPtr slot;
        EXPECT_GT(call(slot.out()), 0);
        slot.reset();
        EXPECT_EQ(interposer_.unanswered(), 1U);
        answer_all(0);
        sd_bus_emit_signal(peer_.get(), "/x", "com.example.Peer1", "News", "");
        settle();
    }
}

TEST_F(BusInterposerTest, CallWhoseTimeIsOverIsNotWaitedFor) {
    common::check(sd_bus_set_method_call_timeout(bus_.get(), 50'000), "time-out");
    EXPECT_GT(call(nullptr), 0);
    for (int i = 0; i < 100 && heard_.times == 0; ++i) {
        if (sd_bus_process(bus_.get(), nullptr) == 0)
            sd_bus_wait(bus_.get(), 100'000);
    }
    EXPECT_EQ(heard_.error, SD_BUS_ERROR_NO_REPLY);
    EXPECT_EQ(interposer_.unanswered(), 0U);
    // The answer that comes all the same takes nothing more off.
    answer_all(1);
}

TEST_F(BusInterposerTest, CallWithoutCallbackExpectsNoAnswer) {
    send_without_callback();
    EXPECT_EQ(interposer_.unanswered(), 0U);
    settle();
    ASSERT_EQ(calls_.size(), 1U);
    EXPECT_EQ(sd_bus_message_get_expect_reply(calls_.front().get()), 0);
}

TEST_F(BusInterposerTest, OtherConnectionsAreNotSeen) {
    const common::BusPtr other = common::open_bus(daemon_.address(), std::chrono::seconds(10));
    const CurrentBlock current(block_, "run");
    EXPECT_GT(sd_bus_call_method_async(other.get(), nullptr, "com.example.Peer", "/x",
                                       "com.example.Peer1", "Ask", on_answer, &heard_, ""),
              0);
    EXPECT_EQ(interposer_.unanswered(), 0U);
    EXPECT_EQ(interposer_.block_calls().services("b"), Words{});
}

TEST_F(BusInterposerTest, ErrorsComeBackUntouched) {
    common::SlotPtr slot;
    EXPECT_EQ(call(slot.out(), "no path"), -EINVAL);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(interposer_.unanswered(), 0U);
    EXPECT_EQ(sd_bus_call_method_async(nullptr, nullptr, "com.example.Peer", "/x",
                                       "com.example.Peer1", "Ask", on_answer, &heard_, ""),
              -EINVAL);
    EXPECT_EQ(sd_bus_call_async(bus_.get(), nullptr, nullptr, on_answer, &heard_, 0), -EINVAL);
    EXPECT_EQ(
        sd_bus_add_match_async(bus_.get(), nullptr, "nonsense", on_signal, on_answer, &heard_),
        -EINVAL);
    common::BusError error;
    EXPECT_EQ(sd_bus_call_method(bus_.get(), "com.example.Absent", "/x", "com.example.Peer1", "Ask",
                                 &error, nullptr, ""),
              -EHOSTUNREACH);
    EXPECT_TRUE(sd_bus_error_has_name(&error, SD_BUS_ERROR_SERVICE_UNKNOWN));
}

TEST_F(BusInterposerTest, ServicesAreThoseThatABlockHasCalledOrListensTo) {
    {
        const CurrentBlock current(block_, "run");
        sd_bus_match_signal_async(bus_.get(), nullptr, "com.example.Heard", nullptr, nullptr,
                                  "Sound", on_signal, on_answer, &heard_);
        sd_bus_match_signal(bus_.get(), nullptr, "com.example.HeardToo", nullptr, nullptr, "Sound",
                            on_signal, nullptr);
        sd_bus_add_match(bus_.get(), nullptr, "type='signal',sender='org.freedesktop.DBus'",
                         on_signal, nullptr);
        sd_bus_add_match(bus_.get(), nullptr, "type='signal',member='NoSender'", on_signal,
                         nullptr);
        sd_bus_call_method(bus_.get(), "com.example.Blocking", "/x", "com.example.X1", "Ask",
                           nullptr, nullptr, "");
        sd_bus_get_property_trivial(bus_.get(), "com.example.Property", "/x", "com.example.X1", "P",
                                    nullptr, 'i', &heard_.times);
        const char* own = nullptr;
        sd_bus_get_unique_name(bus_.get(), &own);
        sd_bus_call_method_async(bus_.get(), nullptr, own, "/x", "com.example.X1", "Ask", nullptr,
                                 nullptr, "");
    }
    send_without_callback();
    send_without_callback();
    EXPECT_EQ(interposer_.block_calls().services("b"),
              (Words{"com.example.Heard", "com.example.HeardToo", "com.example.Blocking",
                     "com.example.Property", "com.example.Peer"}));
    EXPECT_EQ(interposer_.block_calls().services("c"), Words{});
}

constexpr sd_bus_vtable answer_table[] = {
    SD_BUS_VTABLE_START(SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Ask", "", "", on_answer, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

TEST_F(BusInterposerTest, CallbacksOfMatchesAndObjectsBelongToTheBlockThatInstalledThem) {
    constexpr const char* rule = "type='signal',member='Sound'";
    const auto install = [&](const std::string& block, sd_bus_slot** one, sd_bus_slot** other,
                             sd_bus_slot** object) {
        const CurrentBlock current(block, "run");
        const std::string path = "/" + block;
        EXPECT_GE(sd_bus_add_match_async(bus_.get(), one, rule, on_answer, nullptr, &heard_), 0);
        EXPECT_GE(sd_bus_add_match(bus_.get(), other, rule, on_answer, &heard_), 0);
        EXPECT_GE(sd_bus_add_object_vtable(bus_.get(), object, path.c_str(), "com.example.Answer",
                                           answer_table, &heard_),
                  0);
    };
    const auto ring = [&] {
        heard_ = {};
        sd_bus_emit_signal(peer_.get(), "/x", "com.example.Peer1", "Sound", "");
        settle();
    };
    const auto ask = [&](const char* path) {
        heard_ = {};
        heard_.returns = 1;
        const char* name = nullptr;
        sd_bus_get_unique_name(bus_.get(), &name);
        sd_bus_call_method_async(peer_.get(), nullptr, name, path, "com.example.Answer", "Ask",
                                 nullptr, nullptr, "");
        settle();
    };
    {
        common::SlotPtr one;
        common::SlotPtr other;
        common::SlotPtr object;
        install("kept", one.out(), other.out(), object.out());
        ring();
        EXPECT_EQ(heard_.times, 2);
        EXPECT_EQ(heard_.block, "kept");
        ask("/kept");
        EXPECT_EQ(heard_.block, "kept");
        EXPECT_TRUE(heard_.own_userdata);
    }
    ring();
    EXPECT_EQ(heard_.times, 0);
    // sd-bus keeps slots that the block does not want.
    install("floating", nullptr, nullptr, nullptr);
    ring();
    EXPECT_EQ(heard_.times, 2);
    EXPECT_EQ(heard_.block, "floating");
    ask("/floating");
    EXPECT_EQ(heard_.times, 1);
    EXPECT_EQ(heard_.block, "floating");
    EXPECT_EQ(CurrentBlock::name(), nullptr);
}

TEST_F(BusInterposerTest, CallbackOfNoBlockBelongsToNone) {
    common::SlotPtr slot;
    EXPECT_GE(sd_bus_add_match(bus_.get(), slot.out(), "type='signal',member='Sound'", on_answer,
                               &heard_),
              0);
    sd_bus_slot_set_description(slot.get(), "a description of its own");
    sd_bus_emit_signal(peer_.get(), "/x", "com.example.Peer1", "Sound", "");
    settle();
    EXPECT_EQ(heard_.times, 1);
    EXPECT_EQ(heard_.block, "");
}

/// A daemon that allows little.
class NarrowBus : public BusInterposerTest {
  protected:
    NarrowBus()
        : BusInterposerTest(
              "<limit name=\"max_match_rules_per_connection\">2</limit>"
              "<limit name=\"max_replies_per_connection\">2</limit>") {}
};

TEST_F(NarrowBus, LimitOfMatchesIsToldOnceForEachBlock) {
    for (const std::string block : {"b", "c", "b", "c"}) {
        const CurrentBlock current(block, "run");
        for (int i = 0; i < 3; ++i)
            sd_bus_match_signal_async(bus_.get(), nullptr, "com.example.Peer", nullptr, nullptr,
                                      "Sound", on_signal, on_answer, &heard_);
    }
    settle();
    EXPECT_EQ(heard_.times, 12);
    EXPECT_EQ(heard_.error, SD_BUS_ERROR_LIMITS_EXCEEDED);
    ASSERT_EQ(limits_.size(), 2U);
    EXPECT_TRUE(limits_[0].starts_with("b: ")) << limits_[0];
    EXPECT_TRUE(limits_[1].starts_with("c: ")) << limits_[1];
    EXPECT_NE(limits_[0].find("max_match_rules_per_connection=2"), std::string::npos) << limits_[0];
}

TEST_F(NarrowBus, AnswersToMatchesAreToldApart) {
    using Answer = BusInterposer::MatchAnswer;
    std::vector<Answer> answers;
    interposer_.on_match([&answers](const std::string& block, Answer answer) {
        EXPECT_EQ(block, "b");
        answers.push_back(answer);
    });
    const auto ask = [&](const char* rule) {
        const CurrentBlock current(block_, "run");
        common::SlotPtr slot;
        EXPECT_GE(
            sd_bus_add_match_async(bus_.get(), slot.out(), rule, on_signal, on_answer, &heard_), 0);
        return slot;
    };
    std::vector<common::SlotPtr> kept;
    kept.push_back(ask("type='signal',member='A'"));
    common::SlotPtr second = ask("type='signal',member='B'");
    EXPECT_EQ(interposer_.matches_requested(), 2U);
    settle();
    EXPECT_EQ(interposer_.matches_requested(), 0U);
    EXPECT_EQ(std::exchange(answers, {}), (std::vector{Answer::installed, Answer::installed}));
    for (int i = 0; i < 3; ++i)
        kept.push_back(ask("type='signal',member='C'"));
    kept.push_back(ask("type='signal',member='D'"));
    settle();
    EXPECT_EQ(interposer_.matches_requested(), 0U);
    EXPECT_EQ(std::exchange(answers, {}), (std::vector{Answer::refused, Answer::refused_again,
                                                       Answer::refused_again, Answer::refused}));
    second.reset();
    kept.push_back(ask("type='signal',member='C'"));
    kept.push_back(ask("type='signal',member='C'"));
    settle();
    EXPECT_EQ(answers, (std::vector{Answer::installed, Answer::refused}));
    EXPECT_EQ(heard_.times, 8);
    interposer_.on_match({});
}

TEST_F(NarrowBus, LimitOfABlockingMatchIsToldAndItsErrorComesBack) {
    const CurrentBlock current(block_, "run");
    int r = 0;
    for (int i = 0; i < 3; ++i)
        r = sd_bus_add_match(bus_.get(), nullptr, "type='signal'", on_signal, nullptr);
    EXPECT_EQ(r, -ENOBUFS);
    ASSERT_EQ(limits_.size(), 1U);
    EXPECT_TRUE(limits_[0].starts_with("b: ")) << limits_[0];
}

TEST_F(NarrowBus, LimitOfUnansweredCallsIsNamed) {
    for (int i = 0; i < 4; ++i)
        call(nullptr);
    settle();
    EXPECT_EQ(heard_.times, 2);
    EXPECT_EQ(heard_.error, SD_BUS_ERROR_LIMITS_EXCEEDED);
    EXPECT_EQ(interposer_.unanswered(), 2U);
    ASSERT_EQ(limits_.size(), 1U);
    EXPECT_NE(limits_[0].find("max_replies_per_connection"), std::string::npos) << limits_[0];
}

}  // namespace
}  // namespace host
