#include "host/runtime/bus_interposer.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <utility>

#include "common/bus/bus.hpp"
#include "common/bus/private_bus.hpp"
#include "host/output/current_block.hpp"

namespace host {
namespace {

using Words = std::vector<std::string>;

/// What a callback was given.
struct Heard {
    int times = 0;
    int returns = 0;
    std::string error;
    std::string block;         ///< the current one during the callback
    bool own_userdata = true;  ///< sd-bus says so, too
};

int on_answer(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
    auto& heard = *static_cast<Heard*>(userdata);
    ++heard.times;
    const sd_bus_error* const error = sd_bus_message_get_error(message);
    heard.error = error == nullptr ? "" : error->name;
    heard.block = CurrentBlock::name() == nullptr ? "" : *CurrentBlock::name();
    heard.own_userdata = heard.own_userdata &&
                         sd_bus_get_current_userdata(sd_bus_message_get_bus(message)) == userdata;
    return heard.returns;
}

int on_signal(sd_bus_message* /*message*/, void* /*userdata*/, sd_bus_error* /*error*/) {
    return 0;
}

/// A tapped connection, and a peer that answers when it is told to.
class BusInterposerTest : public testing::Test {
  protected:
    explicit BusInterposerTest(const std::string& xml = {}) : daemon_({{}, {}, {}, xml}) {
        common::own_name(*peer_, "com.example.Peer");
        interposer_.on_limit([this](const std::string* block, const std::string& text) {
            limits_.push_back((block == nullptr ? "nobody" : *block) + ": " + text);
        });
        const int r = sd_bus_add_filter(
            peer_.get(), nullptr,
            [](sd_bus_message* message, void* userdata, sd_bus_error*) {
                if (sd_bus_message_is_method_call(message, "com.example.Peer1", nullptr) > 0)
                    static_cast<BusInterposerTest*>(userdata)->calls_.emplace_back(
                        sd_bus_message_ref(message));
                return 1;
            },
            this);
        common::check(r, "filter");
    }

    /// As block "b", an asynchronous call to the peer. @returns what sd-bus returned.
    int call(sd_bus_slot** slot, Heard* heard, const char* path = "/x") {
        const CurrentBlock current(block_, "run");
        return sd_bus_call_method_async(bus_.get(), slot, "com.example.Peer", path,
                                        "com.example.Peer1", "Ask",
                                        heard == nullptr ? nullptr : on_answer, heard, "s", "?");
    }

    /// Serves both ends until nothing has come for a while that is long enough for the daemon.
    void settle() {
        // Answered by the daemon behind all that was sent before.
        for (sd_bus* bus : {bus_.get(), peer_.get(), bus_.get()}) {
            common::check(sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                             "org.freedesktop.DBus", "GetId", nullptr, nullptr, ""),
                          "GetId");
            while (sd_bus_process(bus, nullptr) > 0) {
            }
        }
    }

    void answer_all() {
        settle();
        for (const common::MessagePtr& asked : calls_)
            sd_bus_reply_method_return(asked.get(), "");
        calls_.clear();
        settle();
    }

    common::PrivateBus daemon_;
    common::BusPtr bus_ = common::open_bus(daemon_.address(), std::chrono::seconds(10));
    common::BusPtr peer_ = common::open_bus(daemon_.address(), std::chrono::seconds(10));
    BusInterposer interposer_{*bus_};
    std::string block_ = "b";
    std::vector<common::MessagePtr> calls_;
    Words limits_;
};

TEST_F(BusInterposerTest, CallIsUnansweredUntilItsAnswerCame) {
    Heard heard;
    sd_bus_slot* slot = nullptr;
    EXPECT_GT(call(&slot, &heard), 0);
    const common::SlotPtr owned(slot);
    EXPECT_EQ(sd_bus_slot_get_userdata(slot), &heard);
    EXPECT_EQ(interposer_.unanswered(), 1U);
    settle();
    EXPECT_EQ(interposer_.unanswered(), 1U);
    answer_all();
    EXPECT_EQ(interposer_.unanswered(), 0U);
    EXPECT_EQ(heard.times, 1);
    EXPECT_EQ(heard.error, "");
    EXPECT_EQ(heard.block, "b");
    EXPECT_TRUE(heard.own_userdata);
}

TEST_F(BusInterposerTest, FloatingCallIsCountedAsWell) {
    Heard heard;
    EXPECT_GT(call(nullptr, &heard), 0);
    EXPECT_EQ(interposer_.unanswered(), 1U);
    answer_all();
    EXPECT_EQ(interposer_.unanswered(), 0U);
    EXPECT_EQ(heard.times, 1);
}

TEST_F(BusInterposerTest, CallIsUnansweredForTheDaemonAlsoWhenItsSlotIsGivenUp) {
    Heard heard;
    sd_bus_slot* slot = nullptr;
    EXPECT_GT(call(&slot, &heard), 0);
    sd_bus_slot_unref(slot);
    EXPECT_EQ(interposer_.unanswered(), 1U);
    answer_all();
    EXPECT_EQ(interposer_.unanswered(), 0U);
    EXPECT_EQ(heard.times, 0);
}

TEST_F(BusInterposerTest, CallbackThatReturnsAnErrorIsCountedAsAnswered) {
    Heard heard;
    heard.returns = -EINVAL;
    EXPECT_GT(call(nullptr, &heard), 0);
    answer_all();
    EXPECT_EQ(heard.times, 1);
    EXPECT_EQ(interposer_.unanswered(), 0U);
}

TEST_F(BusInterposerTest, CallWhoseTimeIsOverIsNotWaitedFor) {
    common::check(sd_bus_set_method_call_timeout(bus_.get(), 50'000), "time-out");
    Heard heard;
    EXPECT_GT(call(nullptr, &heard), 0);
    for (int i = 0; i < 100 && heard.times == 0; ++i) {
        if (sd_bus_process(bus_.get(), nullptr) == 0)
            sd_bus_wait(bus_.get(), 100'000);
    }
    EXPECT_EQ(heard.error, SD_BUS_ERROR_NO_REPLY);
    EXPECT_EQ(interposer_.unanswered(), 0U);
    // The answer that comes all the same takes nothing more off.
    answer_all();
    EXPECT_EQ(interposer_.unanswered(), 0U);
}

TEST_F(BusInterposerTest, CallWithoutCallbackExpectsNoAnswer) {
    EXPECT_GT(call(nullptr, nullptr), 0);
    EXPECT_EQ(interposer_.unanswered(), 0U);
    settle();
    ASSERT_EQ(calls_.size(), 1U);
    EXPECT_EQ(sd_bus_message_get_expect_reply(calls_.front().get()), 0);
}

TEST_F(BusInterposerTest, OtherConnectionsAreNotSeen) {
    const common::BusPtr other = common::open_bus(daemon_.address(), std::chrono::seconds(10));
    const CurrentBlock current(block_, "run");
    Heard heard;
    EXPECT_GT(sd_bus_call_method_async(other.get(), nullptr, "com.example.Peer", "/x",
                                       "com.example.Peer1", "Ask", on_answer, &heard, ""),
              0);
    EXPECT_EQ(interposer_.unanswered(), 0U);
    EXPECT_EQ(interposer_.services("b"), Words{});
}

TEST_F(BusInterposerTest, ErrorsComeBackUntouched) {
    Heard heard;
    sd_bus_slot* slot = nullptr;
    EXPECT_EQ(call(&slot, &heard, "no path"), -EINVAL);
    EXPECT_EQ(slot, nullptr);
    EXPECT_EQ(interposer_.unanswered(), 0U);
    EXPECT_EQ(sd_bus_call_method_async(nullptr, nullptr, "com.example.Peer", "/x",
                                       "com.example.Peer1", "Ask", on_answer, &heard, ""),
              -EINVAL);
    EXPECT_EQ(sd_bus_call_async(bus_.get(), nullptr, nullptr, on_answer, &heard, 0), -EINVAL);
    EXPECT_EQ(sd_bus_add_match_async(bus_.get(), nullptr, "nonsense", on_signal, on_answer, &heard),
              -EINVAL);
    common::BusError error;
    EXPECT_EQ(sd_bus_call_method(bus_.get(), "com.example.Absent", "/x", "com.example.Peer1", "Ask",
                                 &error, nullptr, ""),
              -EHOSTUNREACH);
    EXPECT_TRUE(sd_bus_error_has_name(&error, SD_BUS_ERROR_SERVICE_UNKNOWN));
}

TEST_F(BusInterposerTest, ServicesAreThoseThatABlockHasCalledOrListensTo) {
    Heard heard;
    {
        const CurrentBlock current(block_, "run");
        sd_bus_match_signal_async(bus_.get(), nullptr, "com.example.Heard", nullptr, nullptr,
                                  "Sound", on_signal, on_answer, &heard);
        sd_bus_match_signal(bus_.get(), nullptr, "com.example.HeardToo", nullptr, nullptr, "Sound",
                            on_signal, nullptr);
        sd_bus_add_match(bus_.get(), nullptr, "type='signal',sender='org.freedesktop.DBus'",
                         on_signal, nullptr);
        sd_bus_add_match(bus_.get(), nullptr, "type='signal',member='NoSender'", on_signal,
                         nullptr);
        sd_bus_call_method(bus_.get(), "com.example.Blocking", "/x", "com.example.X1", "Ask",
                           nullptr, nullptr, "");
        sd_bus_get_property_trivial(bus_.get(), "com.example.Property", "/x", "com.example.X1", "P",
                                    nullptr, 'i', &heard.times);
        const char* own = nullptr;
        sd_bus_get_unique_name(bus_.get(), &own);
        sd_bus_call_method_async(bus_.get(), nullptr, own, "/x", "com.example.X1", "Ask", nullptr,
                                 nullptr, "");
    }
    call(nullptr, nullptr);
    call(nullptr, nullptr);
    EXPECT_EQ(interposer_.services("b"),
              (Words{"com.example.Heard", "com.example.HeardToo", "com.example.Blocking",
                     "com.example.Property", "com.example.Peer"}));
    EXPECT_EQ(interposer_.services("c"), Words{});
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
    Heard heard;
    for (const std::string block : {"b", "c", "b", "c"}) {
        const CurrentBlock current(block, "run");
        for (int i = 0; i < 3; ++i)
            sd_bus_match_signal_async(bus_.get(), nullptr, "com.example.Peer", nullptr, nullptr,
                                      "Sound", on_signal, on_answer, &heard);
    }
    settle();
    EXPECT_EQ(heard.times, 12);
    EXPECT_EQ(heard.error, SD_BUS_ERROR_LIMITS_EXCEEDED);
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
    Heard heard;
    const auto ask = [&](const char* rule) {
        const CurrentBlock current(block_, "run");
        sd_bus_slot* slot = nullptr;
        EXPECT_GE(sd_bus_add_match_async(bus_.get(), &slot, rule, on_signal, on_answer, &heard), 0);
        return common::SlotPtr(slot);
    };
    const common::SlotPtr first = ask("type='signal',member='A'");
    common::SlotPtr second = ask("type='signal',member='B'");
    EXPECT_EQ(interposer_.matches_requested(), 2U);
    settle();
    EXPECT_EQ(interposer_.matches_requested(), 0U);
    EXPECT_EQ(std::exchange(answers, {}), (std::vector{Answer::installed, Answer::installed}));
    for (int i = 0; i < 3; ++i)
        ask("type='signal',member='C'").release();
    ask("type='signal',member='D'").release();
    settle();
    EXPECT_EQ(interposer_.matches_requested(), 0U);
    EXPECT_EQ(std::exchange(answers, {}), (std::vector{Answer::refused, Answer::refused_again,
                                                       Answer::refused_again, Answer::refused}));
    second.reset();
    const common::SlotPtr third = ask("type='signal',member='C'");
    ask("type='signal',member='C'").release();
    settle();
    EXPECT_EQ(answers, (std::vector{Answer::installed, Answer::refused}));
    EXPECT_EQ(heard.times, 8);
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
    Heard heard;
    for (int i = 0; i < 4; ++i)
        call(nullptr, &heard);
    settle();
    EXPECT_EQ(heard.times, 2);
    EXPECT_EQ(heard.error, SD_BUS_ERROR_LIMITS_EXCEEDED);
    EXPECT_EQ(interposer_.unanswered(), 2U);
    ASSERT_EQ(limits_.size(), 1U);
    EXPECT_NE(limits_[0].find("max_replies_per_connection"), std::string::npos) << limits_[0];
}

}  // namespace
}  // namespace host
