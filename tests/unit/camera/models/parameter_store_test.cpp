#include "camera/models/parameter_store.hpp"

#include <gmock/gmock.h>

#include "camera/models/command_error.hpp"

namespace camera {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

const std::string wdr0 = "ImageSource.I0.Sensor.WDR";
const std::string wdr1 = "ImageSource.I1.Sensor.WDR";
const std::string update = "/tarlo-cgi/param.cgi?action=update&";

class Parameters : public ::testing::Test {
  protected:
    /// What a request is refused with.
    std::string refusal(const std::string& url, const std::string& type = "GET") {
        try {
            (void)store_.request(type, url);
        } catch (const CommandError& refusal) {
            EXPECT_EQ(values(), "off off") << "a refused request changes nothing";
            return refusal.what();
        }
        return "no refusal";
    }

    [[nodiscard]] std::string values() const {
        return store_.by_name(wdr0).value + ' ' + store_.by_name(wdr1).value;
    }

    ParameterStore store_{2};
};

TEST_F(Parameters, WdrOfEachChannelIsOffAtFirst) {
    EXPECT_EQ(values(), "off off");
    EXPECT_EQ(wdr_parameter(1), wdr1);
}

TEST_F(Parameters, AnUpdateSetsTheOneThatItNames) {
    EXPECT_THAT(store_.request("GET", update + wdr1 + "=on"), ElementsAre(Pair(wdr1, "on")));
    EXPECT_EQ(values(), "off on");
    EXPECT_THAT(store_.request("GET", update + wdr1 + "=off"), ElementsAre(Pair(wdr1, "off")));
    EXPECT_EQ(values(), "off off");
}

TEST_F(Parameters, AnUpdateMaySetSeveralInItsOrder) {
    EXPECT_THAT(store_.request("GET", "/tarlo-cgi/param.cgi?" + wdr1 + "=on&action=update&" + wdr0 +
                                          "=on&" + wdr1 + "=off"),
                ElementsAre(Pair(wdr1, "on"), Pair(wdr0, "on"), Pair(wdr1, "off")));
    EXPECT_EQ(values(), "on off");
}

TEST_F(Parameters, EscapesOfAQueryAreUndone) {
    (void)store_.request("GET", update + "ImageSource%2eI0%2ESensor.WDR=%6fn");
    EXPECT_EQ(values(), "on off");
}

TEST_F(Parameters, WhatIsNoEscapeStaysAsItIs) {
    EXPECT_EQ(refusal(update + wdr0 + "=o%6"),
              "'o%6' is not a valid value of '" + wdr0 + "': expected on or off");
    EXPECT_EQ(refusal(update + wdr0 + "=%6gn+%"),
              "'%6gn %' is not a valid value of '" + wdr0 + "': expected on or off");
}

TEST_F(Parameters, AnUnknownParameterGetsTheNearest) {
    EXPECT_EQ(refusal(update + "ImageSource.I0.Sensor.WRD=on"),
              "unknown parameter 'ImageSource.I0.Sensor.WRD'; did you mean '" + wdr0 + "'?");
    EXPECT_EQ(refusal(update + "Brightness=on"), "unknown parameter 'Brightness'");
}

TEST_F(Parameters, OneWrongUpdateSpoilsTheOthers) {
    EXPECT_EQ(refusal(update + wdr0 + "=on&" + wdr1 + "=maybe"),
              "'maybe' is not a valid value of '" + wdr1 + "': expected on or off");
}

TEST_F(Parameters, OnlyAGetOfTheUpdateIsServed) {
    EXPECT_EQ(refusal(update + wdr0 + "=on", "POST"),
              "unsupported request type 'POST': expected 'GET'");
    EXPECT_EQ(refusal("/tarlo-cgi/params.cgi?action=update&" + wdr0 + "=on"),
              "unknown path '/tarlo-cgi/params.cgi': expected '/tarlo-cgi/param.cgi'");
    EXPECT_EQ(refusal(""), "unknown path '': expected '/tarlo-cgi/param.cgi'");
    EXPECT_EQ(refusal("/tarlo-cgi/param.cgi"), "the request needs 'action=update'");
    EXPECT_EQ(refusal("/tarlo-cgi/param.cgi?" + wdr0 + "=on"), "the request needs 'action=update'");
    EXPECT_EQ(refusal("/tarlo-cgi/param.cgi?action=list&" + wdr0 + "=on"),
              "unknown action 'list': expected 'update'");
    EXPECT_EQ(refusal(update), "the request needs a parameter to update");
    EXPECT_EQ(refusal(update + wdr0), "'" + wdr0 + "' in the request is not NAME=VALUE");
}

}  // namespace
}  // namespace camera
