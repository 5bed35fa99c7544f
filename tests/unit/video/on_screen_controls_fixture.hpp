#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/block_driver.hpp"
#include "tests/support/layout_probe.hpp"

namespace controls_test {

using blocks::ControlsState;
using blocks::LayoutProbe;
using blocks::OnScreenControls;
using Journal = std::vector<std::string>;
using Lines = std::vector<std::string>;
using Feature = std::pair<std::string, std::string>;  ///< feature id, language
using Features = std::vector<Feature>;

inline constexpr const char* service_name = "com.tarlo.Onscreencontrols1";

/// A call of the service, with its arguments.
inline std::string service_call(const std::string& call) {
    return "call com.tarlo.Onscreencontrols1 /com/tarlo/Onscreencontrols1 "
           "com.tarlo.Onscreencontrols1 " +
           call;
}

// What the block sends.
inline const std::string owner_match =
    "match type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'";
inline const std::string owner_query =
    "call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus "
    "GetNameOwner(s \"com.tarlo.Onscreencontrols1\")";
inline const std::string list_query = service_call("ListAddedFeatures(a{sv} [])");
inline std::string addition(const std::string& document) {
    return service_call("AddFeatures(s \"en-us\", s \"English\", s \"" + document +
                        "\", a{sv} [])");
}
inline std::string removal(const std::string& id, const std::string& language = "en-us") {
    return service_call("RemoveFeatures(s \"" + id + "\", s \"" + language + "\", a{sv} [])");
}
inline std::string last_removal(const std::string& id, const std::string& language = "en-us") {
    return removal(id, language) + " without reply";
}

/// The addition of a block on channel 0, byte for byte.
inline const std::string first_addition = addition(
    R"({"featureGroups":[],"features":[{"info":"Turn on WDR to make both dark and bright areas of )"
    R"(the image visible on channel 1","name":"activateWDR1","niceName":"Turn on WDR 1",)"
    R"("requestPayload":"JSON","requestType":"GET",)"
    R"("requestURL":"/tarlo-cgi/param.cgi?action=update&ImageSource.I0.Sensor.WDR=on",)"
    R"("response":false,"user":["operator"]},{"info":"Turn off WDR on channel 1",)"
    R"("name":"deactivateWDR1","niceName":"Turn off WDR 1","requestPayload":"JSON",)"
    R"("requestType":"GET",)"
    R"("requestURL":"/tarlo-cgi/param.cgi?action=update&ImageSource.I0.Sensor.WDR=off",)"
    R"("response":false,"user":["operator"]}],"name":"WDR1","niceName":"WDR 1"})");

class OnScreenControlsTest : public support::BlockTest {
  protected:
    /// Builds a block on channel 0 and takes its first wake-up.
    void make(bool wdr) { make_with({{"channel", 0}, {"wdr", wdr}}); }
    void make_with(const Fenwa::BlockConfiguration& config) {
        controls.emplace(recorders.tools, "controls", config);
        EXPECT_TRUE(controls->woken());
        EXPECT_EQ(bus.take_journal(), Journal{});
    }

    /// A run, with what the block sends in it.
    Journal run() {
        EXPECT_TRUE((*controls)->run());
        return bus.take_journal();
    }

    /// Calls the callback of a call or match, which must return `result`.
    void deliver(const support::Sending& sending, sd_bus_message* message, int result = 0) {
        EXPECT_EQ(sending.deliver(message), result);
    }
    void answer(sd_bus_message* reply) { deliver(bus.last(), reply); }

    // Each takes the block one step further.

    /// The match is sending 1.
    void install_match() {
        EXPECT_EQ(run(), (Journal{owner_match}));
        EXPECT_EQ(bus.last().install(messages.reply("")), 0);
        EXPECT_TRUE(controls->woken());
    }
    /// The question is sending 2.
    void ask() {
        install_match();
        EXPECT_EQ(run(), (Journal{owner_query}));
    }
    /// The question for the list is sending 3.
    void list() {
        ask();
        deliver(bus.last(), messages.reply("s", ":1.5"), 1);
        EXPECT_TRUE(controls->woken());
        EXPECT_EQ(run(), (Journal{"release #2 GetNameOwner", list_query}));
    }
    /// Answers it: each id with its languages.
    template <class... Values>
    void answer_list(unsigned ids, Values... values) {
        answer(messages.reply("a(sas)", ids, values...));
        EXPECT_EQ(state(), ControlsState::FeaturesListed);
        EXPECT_TRUE(controls->woken());
    }
    /// ... with nothing listed.
    void reach_list() {
        list();
        answer_list(0U);
    }
    /// Up to the addition under way, sending 4.
    void add() {
        make(true);
        reach_list();
        EXPECT_EQ(run(), (Journal{"release #3 ListAddedFeatures", first_addition}));
        EXPECT_EQ(state(), ControlsState::UpdatePending);
    }
    /// ... and answered.
    void synchronize() {
        add();
        answer(messages.reply(""));
        EXPECT_EQ(state(), ControlsState::Synchronized);
        EXPECT_TRUE(controls->woken());
    }

    void change_owner(const char* name, const char* new_owner) {
        deliver(bus.sending(1), messages.owner_change(name, "", new_owner));
    }
    /// Tells the block of a new instance of the service.
    void restart_service() {
        change_owner(service_name, ":1.6");
        EXPECT_EQ(state(), ControlsState::OwnerAppeared);
        EXPECT_TRUE(controls->woken());
    }

    [[nodiscard]] ControlsState& state() { return LayoutProbe::state(**controls); }
    [[nodiscard]] Feature& pending() { return LayoutProbe::pending_feature(**controls); }
    [[nodiscard]] Features& added() { return LayoutProbe::added_features(**controls); }
    [[nodiscard]] Features& listed() { return LayoutProbe::listed_features(**controls); }
    [[nodiscard]] bool match_held() {
        return *LayoutProbe::match_slot_field(**controls) != nullptr;
    }
    [[nodiscard]] bool call_held() { return *LayoutProbe::call_slot_field(**controls) != nullptr; }

    std::optional<support::BlockDriver<OnScreenControls>> controls;
};

}  // namespace controls_test
