// Buttons on the camera's screen: added, listed, pressed, removed.
#include <gmock/gmock.h>

#include "tests/integration/camera/controls_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

using Controls = ControlsScene;

const std::string error = "com.tarlo.Onscreencontrols1.Error.";
const std::string url = "GET /tarlo-cgi/param.cgi?action=update&ImageSource.I0.Sensor.WDR=";

TEST_F(Controls, AFeatureIsAddedListedAndRemoved) {
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

TEST_F(Controls, AddedAgainItIsThereOnce) {
    EXPECT_EQ(add(wdr_document(1, "POST")), "()");
    EXPECT_EQ(add(wdr_document(1)), "()");
    EXPECT_EQ(list(), R"(([["WDR1",["en-us"]]]))");
    handle({"press", "activateWDR1"});
    EXPECT_EQ(value("wdr.0"), "on") << "the later document counts";
    EXPECT_EQ(remove("WDR1"), "()");
    EXPECT_THAT(remove("WDR1"), StartsWith(error + "UnknownFeature: "));
}

TEST_F(Controls, AWrongDocumentIsRefusedWithItsPlace) {
    const std::string invalid = error + "InvalidDocument: ";
    EXPECT_EQ(add("{\"name\":"),
              invalid +
                  "The document is not JSON, see byte 9: syntax error while parsing value - "
                  "unexpected end of input; expected '[', '{', or a literal.");
    std::string document = wdr_document(1);
    document.replace(document.find("false"), 5, "\"no\"");
    EXPECT_EQ(add(document), invalid + "'/features/0/response' must be a boolean, not a string.");
    document = wdr_document(1);
    document.replace(document.find("false"), 5, "1e999");
    EXPECT_EQ(
        add(document),
        invalid + "The document holds a number out of range: number overflow parsing '1e999'.");
    EXPECT_EQ(add(wdr_document(1), ""),
              error + "InvalidLanguage: A language's tag must have 1 to 255 bytes, not 0.");
    EXPECT_EQ(list(), "([])");
}

TEST_F(Controls, OptionsChangeNothing) {
    EXPECT_EQ(client_->call("AddFeatures", "sssa{sv}", "en-us", "English", wdr_document(1).c_str(),
                            1, "colour", "s", "red"),
              "()");
    EXPECT_EQ(client_->call("ListAddedFeatures", "a{sv}", 1, "all", "b", 1),
              R"(([["WDR1",["en-us"]]]))");
}

TEST_F(Controls, AButtonChangesTheParameterOfItsChannel) {
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
    EXPECT_EQ(add("{}"), error + "InvalidDocument: The document has no 'name'.");
    EXPECT_EQ(add(wdr_document(1)), "()");
    handle({"press", "activateWDR1"});
    handle({"set", "wdr.0", "off"});
    EXPECT_EQ(remove("WDR1"), "()");
    close();
    const std::string client = R"(,"receiver":")" + client_->unique_name() + '"';
    const std::string sender = R"(,"sender":")" + client_->unique_name() + R"("})";
    const auto call = [&](const std::string& member, const common::Json& arguments) {
        return R"({"event":"call","service":"controls","member":")" + member + R"(","arguments":)" +
               arguments.dump() + sender;
    };
    const auto reply = [&](const std::string& member, const std::string& end) {
        return R"({"event":"reply","service":"controls","member":")" + member + '"' + client + end +
               '}';
    };
    const common::Json none = common::Json::object();
    EXPECT_EQ(told(),
              whole({call("AddFeatures", {"en-us", "English", "{}", none}),
                     reply("AddFeatures", R"(,"error":")" + error +
                                              R"(InvalidDocument","message":"The document has )"
                                              R"(no 'name'.")"),
                     call("AddFeatures", {"en-us", "English", wdr_document(1), none}),
                     reply("AddFeatures", R"(,"values":[])"),
                     R"({"event":"press","service":"controls","button":"activateWDR1",)"
                     R"("request":")" +
                         url + R"(on"})",
                     R"({"event":"set","name":"wdr.0","value":"on"})",
                     R"({"event":"set","name":"wdr.0","value":"off"})",
                     call("RemoveFeatures", {"WDR1", "en-us", none}),
                     reply("RemoveFeatures", R"(,"values":[])")}));
}

TEST_F(Controls, AreShownWithTheirRequests) {
    EXPECT_EQ(add(wdr_document(1)), "()");
    const std::string who = client_->unique_name();
    EXPECT_EQ(common::json_line(service("controls")["registrations"]),
              R"([{"id":"WDR1","client":")" + who +
                  R"(","what":"WDR 1 in en-us (English), buttons: activateWDR1, deactivateWDR1",)"
                  R"("nice_name":"WDR 1","language":"en-us","language_name":"English","buttons":)"
                  R"([{"name":"activateWDR1","nice_name":"Turn on WDR 1","request":")" +
                  url +
                  R"(on"},{"name":"deactivateWDR1","nice_name":"Turn off WDR 1","request":")" +
                  url + R"(off"}]}])");
    EXPECT_THAT(order({"show"}).out,
                ::testing::HasSubstr("\n  registration WDR1 of " + who +
                                     ": WDR 1 in en-us (English), buttons: activateWDR1, "
                                     "deactivateWDR1\n"));
}

TEST_F(Controls, AnUnknownButtonGetsTheNearest) {
    EXPECT_EQ(refusal_of("activateWDR1"),
              "fenwa-camera: unknown button 'activateWDR1': no client has added buttons\n");
    EXPECT_EQ(add(wdr_document(1)), "()");
    EXPECT_EQ(refusal_of("activateWDR"),
              "fenwa-camera: unknown button 'activateWDR'; did you mean 'activateWDR1'?\n");
    EXPECT_EQ(refusal_of("zoom"), "fenwa-camera: unknown button 'zoom'\n");
}

TEST_F(Controls, ARequestThatTheCameraDoesNotServeIsRefusedWhenItIsPressed) {
    EXPECT_EQ(add(wdr_document(1, "POST")), "()");
    EXPECT_EQ(add(wdr_document(3)), "()") << "only the press shows that there is no such channel";
    EXPECT_EQ(refusal_of("activateWDR1"),
              "fenwa-camera: the request of the button 'activateWDR1' fails: unsupported request "
              "type 'POST': expected 'GET'\n");
    EXPECT_EQ(refusal_of("activateWDR3"),
              "fenwa-camera: the request of the button 'activateWDR3' fails: unknown parameter "
              "'ImageSource.I2.Sensor.WDR'; did you mean 'ImageSource.I0.Sensor.WDR'?\n");
    close();
    EXPECT_THAT(with("\"press\"", told()), IsEmpty()) << "nothing came of it";
}

}  // namespace
}  // namespace test
