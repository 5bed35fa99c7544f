#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/unit/block_fixture.hpp"

extern template class support::BlockFixture<blocks::OnScreenControls>;

namespace controls_test {

using blocks::ControlsState;
using blocks::OnScreenControls;
using support::Journal;
using support::owner_match;
using support::wake_up;
using Feature = std::pair<std::string, std::string>;  ///< feature id, language
using Features = std::vector<Feature>;

inline constexpr const char* service_name = "com.tarlo.Onscreencontrols1";

/// A call of the service, with its arguments.
inline std::string service_call(const std::string& call) {
    return support::service_call(service_name, "/com/tarlo/Onscreencontrols1", call);
}

// The calls of the block.
inline const std::string owner_query = support::owner_query(service_name);
inline const std::string list_query = service_call("ListAddedFeatures(a{sv} [])");
inline std::string removal(const std::string& id, const std::string& language = "en-us") {
    return service_call("RemoveFeatures(s \"" + id + "\", s \"" + language + "\", a{sv} [])");
}
inline std::string last_removal(const std::string& id, const std::string& language = "en-us") {
    return removal(id, language) + " without reply";
}
/// The addition of a block whose channel is `channel`, or `n` when counted from 1, byte for byte.
inline std::string addition_of(const std::string& channel, const std::string& n) {
    std::string document =
        R"({"featureGroups":[],"features":[{"info":"Turn on WDR to make both dark and bright )"
        R"(areas of the image visible on channel @N","name":"activateWDR@N",)"
        R"("niceName":"Turn on WDR @N","requestPayload":"JSON","requestType":"GET",)"
        R"("requestURL":"/tarlo-cgi/param.cgi?action=update&ImageSource.I@C.Sensor.WDR=on",)"
        R"("response":false,"user":["operator"]},{"info":"Turn off WDR on channel @N",)"
        R"("name":"deactivateWDR@N","niceName":"Turn off WDR @N","requestPayload":"JSON",)"
        R"("requestType":"GET",)"
        R"("requestURL":"/tarlo-cgi/param.cgi?action=update&ImageSource.I@C.Sensor.WDR=off",)"
        R"("response":false,"user":["operator"]}],"name":"WDR@N","niceName":"WDR @N"})";
    for (const auto& [place, text] : {std::pair{"@C", channel}, {"@N", n}}) {
        for (auto at = document.find(place); at != std::string::npos; at = document.find(place))
            document.replace(at, 2, text);
    }
    return service_call("AddFeatures(s \"en-us\", s \"English\", s \"" + document +
                        "\", a{sv} [])");
}
inline const std::string first_addition = addition_of("0", "1");

inline const std::string fired = "fire event_port";

class OnScreenControlsTest : public support::BlockFixture<OnScreenControls> {
  protected:
    void make(bool wdr) { make_with({{"channel", 0}, {"wdr", wdr}}); }
    void make_with(const Fenwa::BlockConfiguration& config) {
        build("controls", support::observed(config));
        EXPECT_EQ(take(),
                  (Journal{"event event_port", "int channel", "bool wdr or a default", fired}));
    }

    // Each builds a block on channel 0 and takes it one step further.

    /// The match is sending 1, the question sending 2.
    void ask(bool wdr) {
        make(wdr);
        EXPECT_EQ(run(), Journal{owner_match});
        EXPECT_EQ(install(bus.last(), messages.reply("")), wake_up);
        EXPECT_EQ(run(), Journal{owner_query});
    }
    /// The question for the list is sending 3.
    void list(bool wdr) {
        ask(wdr);
        EXPECT_EQ(deliver(bus.last(), messages.reply("s", ":1.5")), (Journal{fired, "returns 1"}));
        const std::string answered = bus.last().release_text;
        EXPECT_EQ(run(), (Journal{answered, list_query}));
    }
    /// Answers it: each id with its languages.
    template <class... Values>
    void answer_list(unsigned ids, Values... values) {
        EXPECT_EQ(deliver(bus.last(), messages.reply("a(sas)", ids, values...)), wake_up);
        EXPECT_EQ(state(), ControlsState::FeaturesListed);
    }
    /// Up to the addition under way, sending 4.
    void add() {
        list(true);
        answer_list(0U);
        EXPECT_EQ(run(), (Journal{"release #3 ListAddedFeatures", first_addition}));
        EXPECT_EQ(state(), ControlsState::UpdatePending);
    }
    /// ... and answered.
    void synchronize() {
        add();
        EXPECT_EQ(deliver(bus.last(), messages.reply("")), wake_up);
        EXPECT_EQ(state(), ControlsState::Synchronized);
    }

    Journal change_owner(const char* name, const char* new_owner) {
        return deliver(bus.sending(1), messages.owner_change(name, "", new_owner));
    }
    /// A new instance of the service appears.
    void restart_service() {
        EXPECT_EQ(change_owner(service_name, ":1.6"), wake_up);
        EXPECT_EQ(state(), ControlsState::OwnerAppeared);
    }

    [[nodiscard]] ControlsState& state() { return LayoutProbe::state(block()); }
    [[nodiscard]] Feature& pending() { return LayoutProbe::pending_feature(block()); }
    [[nodiscard]] Features& added() { return LayoutProbe::added_features(block()); }
    [[nodiscard]] Features& listed() { return LayoutProbe::listed_features(block()); }
};

}  // namespace controls_test
