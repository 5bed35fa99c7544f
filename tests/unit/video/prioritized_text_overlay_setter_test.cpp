#include <cerrno>
#include <memory>
#include <utility>

#include "tests/support/configuration_recorder.hpp"
#include "tests/unit/video/prioritized_text_overlay_setter_fixture.hpp"

namespace {

using namespace overlay_test;

TEST_F(PrioritizedTextOverlaySetterTest, HasNoPortsAndNothingOnTheBus) {
    make(0);
    EXPECT_EQ((*setter)->get_inport_names(), Journal{});
    EXPECT_EQ((*setter)->get_outport_names(), Journal{});
    EXPECT_EQ(Fenwa::HostAccess::eventport_names(**setter), Journal{});
    EXPECT_EQ((*setter)->get_name(), "setter");
    EXPECT_EQ(LayoutProbe::bus(**setter), nullptr);
    EXPECT_FALSE(overlay_set());
    EXPECT_FALSE(call_pending());
}

TEST_F(PrioritizedTextOverlaySetterTest, ReadsItsTextAndThenItsDurationWithDefaults) {
    const auto recorder = std::make_shared<support::ConfigurationRecorder>();
    make_with(Fenwa::ConfigurationAccess::observed({{"duration", 3}}, recorder));
    EXPECT_EQ(recorder->reads,
              (Journal{"string prio_text_overlay or a default", "int duration or a default"}));
    EXPECT_EQ(
        Fenwa::ConfigurationAccess::entries(Fenwa::HostAccess::configuration(**setter)).size(), 1U);
}

TEST_F(PrioritizedTextOverlaySetterTest, RefusesValuesOfAnotherType) {
    for (const Fenwa::BlockConfiguration& config : std::initializer_list<Fenwa::BlockConfiguration>{
             {{"prio_text_overlay", 5}},
             {{"prio_text_overlay", {"two", "texts"}}},
             {{"duration", 1.5}},
             {{"duration", {"5"}}},
             {{"duration", std::int64_t{1} << 32}},
         })
        EXPECT_THROW(setter.emplace(recorders.tools, "setter", config), Fenwa::ConfigurationError);
}

TEST_F(PrioritizedTextOverlaySetterTest, DoesNothingWithoutAText) {
    for (const Fenwa::BlockConfiguration& config : std::initializer_list<Fenwa::BlockConfiguration>{
             {}, {{"duration", 5}}, {{"prio_text_overlay", {""}}}}) {
        make_with(config);
        EXPECT_EQ(start(), Journal{});
        EXPECT_EQ(LayoutProbe::bus(**setter), nullptr);
        (*setter)->stop();
        EXPECT_EQ(destroy(), Journal{});
    }
}

TEST_F(PrioritizedTextOverlaySetterTest, SetsItsTextWhenItStarts) {
    make(5);
    EXPECT_EQ(start(), (Journal{set("5")}));
    EXPECT_EQ(LayoutProbe::bus(**setter), messages.bus());
    EXPECT_EQ(bus.last().bus, messages.bus());
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::call_slot_field(**setter));
    EXPECT_EQ(bus.last().userdata, &**setter);
    EXPECT_NE(bus.last().callback, nullptr);
    EXPECT_TRUE(call_pending());
    EXPECT_FALSE(overlay_set());
    EXPECT_FALSE(setter->woken());
}

TEST_F(PrioritizedTextOverlaySetterTest, HandsOnTheDurationsBits) {
    for (const auto& [duration, sent] : {std::pair{0, "0"},
                                         {2147483647, "2147483647"},
                                         {-1, "4294967295"},
                                         {-2147483647 - 1, "2147483648"}}) {
        make(duration);
        EXPECT_EQ(start(), (Journal{set(sent)}));
        EXPECT_EQ(destroy(), (Journal{bus.last().release_text}));
    }
}

TEST_F(PrioritizedTextOverlaySetterTest, SetsTheTextWithoutALimitUnlessToldOtherwise) {
    make_with({{"prio_text_overlay", {"Smoke"}}});
    EXPECT_EQ(start(), (Journal{set("0")}));
}

TEST_F(PrioritizedTextOverlaySetterTest, SaysThatTheTextCouldNotBeSent) {
    make(0);
    bus.answer_next({-EPERM});
    EXPECT_EQ(start(), (Journal{set("0")}));
    EXPECT_EQ(log.take(), (Lines{"2 Could not set prioritized text overlay: "
                                 "Operation not permitted"}));
    EXPECT_FALSE(call_pending());
    EXPECT_FALSE(overlay_set());
    EXPECT_EQ(destroy(), Journal{});
}

TEST_F(PrioritizedTextOverlaySetterTest, TakesAResultOfZeroFromSdBusForSuccess) {
    make(0);
    bus.answer_next({0});
    EXPECT_EQ(start(), (Journal{set("0")}));
    EXPECT_TRUE(call_pending());
}

TEST_F(PrioritizedTextOverlaySetterTest, CountsAnyReplyAsSet) {
    for (const auto& reply : {messages.reply(""), messages.reply("i", 5),
                              messages.error("org.freedesktop.DBus.Error.ServiceUnknown", "no")}) {
        make(5);
        EXPECT_EQ(start(), (Journal{set("5")}));
        answer(reply);
        EXPECT_TRUE(overlay_set());
    }
}

TEST_F(PrioritizedTextOverlaySetterTest, SaysThatTheTextWasNotSetWhenTheErrorArgumentIsSet) {
    for (const auto& [message, line] :
         {std::pair{"not you", "2 Could not set prioritized text overlay: not you"},
          {static_cast<const char*>(nullptr), "2 Could not set prioritized text overlay: "}}) {
        make(0);
        EXPECT_EQ(start(), (Journal{set("0")}));
        EXPECT_EQ(bus.last().deliver(messages.reply(""),
                                     SD_BUS_ERROR_MAKE_CONST("com.example.Error", message)),
                  0);
        EXPECT_EQ(bus.take_journal(), (Journal{bus.last().release_text}));
        EXPECT_EQ(log.take(), (Lines{line}));
        EXPECT_FALSE(call_pending());
        EXPECT_FALSE(overlay_set());
        EXPECT_EQ(destroy(), Journal{});
    }
}

TEST_F(PrioritizedTextOverlaySetterTest, DropsAPendingReplyWhenStopped) {
    make(0);
    EXPECT_EQ(start(), (Journal{set("0")}));
    (*setter)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 Set"}));
    EXPECT_FALSE(call_pending());
    EXPECT_FALSE(overlay_set());
    (*setter)->stop();
    EXPECT_EQ(destroy(), Journal{}) << "what was never answered is not taken away";
}

TEST_F(PrioritizedTextOverlaySetterTest, KeepsWhatIsSetWhenStopped) {
    show();
    (*setter)->stop();
    EXPECT_TRUE(overlay_set());
    EXPECT_EQ(bus.take_journal(), Journal{});
    bus.end_next_call(0);
    EXPECT_EQ(destroy(), (Journal{unset}));
}

TEST_F(PrioritizedTextOverlaySetterTest, SetsTheTextAgainWhenItStartsAgain) {
    make(5);
    EXPECT_EQ(start(), (Journal{set("5")}));
    EXPECT_EQ(start(), (Journal{set("5")}));
    EXPECT_EQ(bus.last().slot_field, LayoutProbe::call_slot_field(**setter));
    EXPECT_EQ(bus.sending(1).deliver(messages.reply("")), 0);
    EXPECT_TRUE(overlay_set()) << "the first reply still counts";
    EXPECT_EQ(bus.take_journal(), (Journal{"release #2 Set"})) << "any reply gives the newest up";
    (*setter)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #1 Set"}));
}

TEST_F(PrioritizedTextOverlaySetterTest, DropsTheRepliesOfEveryStartWhenStopped) {
    make(0);
    EXPECT_EQ(start(), (Journal{set("0")}));
    EXPECT_EQ(start(), (Journal{set("0")}));
    (*setter)->stop();
    EXPECT_EQ(bus.take_journal(), (Journal{"release #2 Set", "release #1 Set"}));
    EXPECT_EQ(destroy(), Journal{});
}

TEST_F(PrioritizedTextOverlaySetterTest, StillHearsTheFirstReplyWhenASecondStartFails) {
    make(5);
    EXPECT_EQ(start(), (Journal{set("5")}));
    bus.answer_next({-ENOBUFS});
    EXPECT_EQ(start(), (Journal{set("5")}));
    EXPECT_EQ(log.take(),
              (Lines{"2 Could not set prioritized text overlay: No buffer space available"}));
    EXPECT_EQ(bus.sending(1).deliver(messages.reply("")), 0);
    EXPECT_TRUE(overlay_set());
    EXPECT_EQ(destroy(), (Journal{"release #1 Set"}));
}

TEST_F(PrioritizedTextOverlaySetterTest, StartsAgainAfterAStop) {
    make(0);
    EXPECT_EQ(start(), (Journal{set("0")}));
    (*setter)->stop();
    (void)bus.take_journal();
    EXPECT_EQ(start(), (Journal{set("0")}));
    answer(messages.reply(""));
    bus.end_next_call(0);
    EXPECT_EQ(destroy(), (Journal{unset}));
}

}  // namespace
