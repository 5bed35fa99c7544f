// Buttons on the camera's screen: added, listed, pressed, removed.
#include <nlohmann/json.hpp>

#include "tests/integration/camera/camera_scene.hpp"
#include "tests/integration/camera/wdr_document.hpp"

namespace test {
namespace {

const std::string error = "com.tarlo.Onscreencontrols1.Error.";
const std::string url = "GET /tarlo-cgi/param.cgi?action=update&ImageSource.I0.Sensor.WDR=";

class Controls : public ClientScene {
  protected:
    void SetUp() override { open_for(camera::onscreen_controls, {.activation = true}); }

    std::string add(const std::string& document, const char* language = "en-us") {
        return call("AddFeatures", "sssa{sv}", language, "English", document.c_str(), 0);
    }
    std::string list() { return call("ListAddedFeatures", "a{sv}", 0); }
    std::string remove(const char* feature, const char* language = "en-us") {
        return call("RemoveFeatures", "ssa{sv}", feature, language, 0);
    }
};

TEST_F(Controls, AreAddedListedAndRemovedByFeature) {
    EXPECT_EQ(list(), "([])");
    EXPECT_EQ(add(wdr_document(1)), "()");
    EXPECT_EQ(add(wdr_document(2)), "()");
    EXPECT_EQ(add(wdr_document(1), "de-de"), "()");
    EXPECT_EQ(list(), R"(([["WDR1",["en-us","de-de"]],["WDR2",["en-us"]]]))");
    EXPECT_EQ(remove("WDR1"), "()");
    EXPECT_EQ(list(), R"(([["WDR2",["en-us"]],["WDR1",["de-de"]]]))")
        << "in the order in which those that are there came";
    EXPECT_EQ(remove("WDR1"),
              error + "UnknownFeature: Unknown feature 'WDR1' in the language 'en-us'.");
    EXPECT_EQ(remove("WDR3", "fr"),
              error + "UnknownFeature: Unknown feature 'WDR3' in the language 'fr'.");
}

TEST_F(Controls, AddedAgainAreThereOnce) {
    EXPECT_EQ(add(wdr_document(1, "POST")), "()");
    EXPECT_EQ(add(wdr_document(2)), "()");
    EXPECT_EQ(add(wdr_document(1)), "()");
    EXPECT_EQ(list(), R"(([["WDR1",["en-us"]],["WDR2",["en-us"]]]))");
    handle({"press", "activateWDR1"});
    EXPECT_EQ(value("wdr.0"), "on") << "the later document counts";
    EXPECT_EQ(remove("WDR1"), "()");
    EXPECT_THAT(remove("WDR1"), StartsWith(error + "UnknownFeature: "));
}

TEST_F(Controls, OfAWrongDocumentAreRefused) {
    std::string document = wdr_document(1);
    document.replace(document.find("false"), 5, "\"no\"");
    EXPECT_EQ(add(document), error +
                                 "InvalidDocument: '/features/0/response' must be a boolean, not a "
                                 "string.");
    EXPECT_EQ(add(wdr_document(1), ""),
              error + "InvalidLanguage: A language's tag must have 1 to 255 bytes, not 0.");
    EXPECT_EQ(list(), "([])");
}

TEST_F(Controls, AreNotChangedByOptions) {
    EXPECT_EQ(call("AddFeatures", "sssa{sv}", "en-us", "English", wdr_document(1).c_str(), 1,
                   "colour", "s", "red"),
              "()");
    EXPECT_EQ(call("ListAddedFeatures", "a{sv}", 1, "all", "b", 1), R"(([["WDR1",["en-us"]]]))");
}

TEST_F(Controls, ChangeTheParameterOfTheirChannel) {
    EXPECT_EQ(add(wdr_document(1)), "()");
    EXPECT_EQ(add(wdr_document(2)), "()");
    handle({"press", "activateWDR2"});
    EXPECT_EQ(value("wdr.0"), "off");
    EXPECT_EQ(value("wdr.1"), "on");
    handle({"press", "activateWDR1"});
    handle({"press", "deactivateWDR2"});
    EXPECT_EQ(value("wdr.0"), "on");
    EXPECT_EQ(value("wdr.1"), "off");
}

TEST_F(Controls, AreToldWithWhatTheyDo) {
    open_for(camera::onscreen_controls, {.format = "text"});
    EXPECT_EQ(add("{}"), error + "InvalidDocument: The document has no 'name'.");
    EXPECT_EQ(add(wdr_document(1)), "()");
    handle({"press", "activateWDR1"});
    handle({"set", "wdr.0", "off"});
    EXPECT_EQ(remove("WDR1"), "()");
    close();
    const std::string client = client_->unique_name();
    const std::string calls = "controls: " + client + " calls ";
    const std::string answers = "controls: answers " + client + ", ";
    const std::string added = calls + "AddFeatures(\"en-us\", \"English\", ";
    EXPECT_EQ(told(),
              whole_text({added + "\"{}\", {})",
                          "controls: refuses " + client + ", AddFeatures: " + error +
                              "InvalidDocument: The document has no 'name'.",
                          added + common::json_line(wdr_document(1)).substr(0, 80) + "…, {})",
                          answers + "AddFeatures: ()",
                          "controls: the button activateWDR1 is pressed: " + url + "on",
                          "controls: WDR of channel 0 is on", "controls: WDR of channel 0 is off",
                          calls + "RemoveFeatures(\"WDR1\", \"en-us\", {})",
                          answers + "RemoveFeatures: ()"}));
}

TEST_F(Controls, AreShownWithTheirRequests) {
    EXPECT_EQ(add(wdr_document(1)), "()");
    EXPECT_EQ(common::json_line(service("controls")["registrations"]),
              R"([{"id":"WDR1","client":")" + client_->unique_name() +
                  R"(","what":"WDR 1 in en-us (English), buttons: activateWDR1, deactivateWDR1",)"
                  R"("nice_name":"WDR 1","language":"en-us","language_name":"English","buttons":)"
                  R"([{"name":"activateWDR1","nice_name":"Turn on WDR 1","request":")" +
                  url +
                  R"(on"},{"name":"deactivateWDR1","nice_name":"Turn off WDR 1","request":")" +
                  url + R"(off"}]}])");
}

TEST_F(Controls, ThatCannotBePressedSayWhy) {
    EXPECT_EQ(add(wdr_document(1, "POST")), "()");
    EXPECT_EQ(add(wdr_document(3)), "()") << "only the press shows that there is no such channel";
    EXPECT_EQ(refusal_of({"press", "activateWDR"}),
              "fenwa-camera: unknown button 'activateWDR'; did you mean 'activateWDR1'?\n");
    EXPECT_EQ(refusal_of({"press", "zoom"}), "fenwa-camera: unknown button 'zoom'\n");
    EXPECT_EQ(refusal_of({"press", "activateWDR1"}),
              "fenwa-camera: the request of the button 'activateWDR1' fails: unsupported request "
              "type 'POST': expected 'GET'\n");
    EXPECT_EQ(refusal_of({"press", "activateWDR3"}),
              "fenwa-camera: the request of the button 'activateWDR3' fails: unknown parameter "
              "'ImageSource.I2.Sensor.WDR'; did you mean 'ImageSource.I0.Sensor.WDR'?\n");
    close();
    EXPECT_THAT(told("press"), IsEmpty()) << "nothing came of it";
}

TEST_F(Controls, StayWhenTheClientThatAddedThemLeaves) {
    BusClient watcher(address(), camera::onscreen_controls);
    EXPECT_EQ(add(wdr_document(1)), "()");
    watcher.watch_owner(client_->unique_name());
    client_.reset();
    // The service hears of the loss before anybody else who asks after it.
    watcher.wait_for(1);
    EXPECT_EQ(watcher.call("ListAddedFeatures", "a{sv}", 0), R"(([["WDR1",["en-us"]]]))");
    handle({"press", "activateWDR1"});
    EXPECT_EQ(value("wdr.0"), "on");
}

TEST_F(Controls, AreForgottenByARestartAndTheParameterIsNot) {
    EXPECT_EQ(add(wdr_document(1)), "()");
    handle({"press", "activateWDR1"});
    handle({"stop", "controls"});
    EXPECT_THAT(refusal_of({"press", "activateWDR1"}), HasSubstr("no client has added buttons"));
    handle({"set", "wdr.1", "on"});
    EXPECT_EQ(list(), "([])") << "a call brings it up";
    EXPECT_EQ(service("controls")["state"], "up");
    EXPECT_EQ(value("wdr.0"), "on");
    EXPECT_EQ(value("wdr.1"), "on");
    EXPECT_EQ(add(wdr_document(1)), "()");
    handle({"restart", "controls"});
    EXPECT_THAT(remove("WDR1"), HasSubstr("UnknownFeature"));
}

}  // namespace
}  // namespace test
