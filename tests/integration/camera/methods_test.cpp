#include <gmock/gmock.h>

#include <limits>
#include <regex>

#include "camera/bus/names.hpp"
#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string unknown_sensor = "com.tarlo.TemperatureController.Error.UnknownSensor: ";
const std::string invalid = "org.freedesktop.DBus.Error.InvalidArgs: ";

class ControllerMethods : public CameraScene {
  protected:
    void SetUp() override {
        open();
        client_ = std::make_unique<BusClient>(address());
    }

    /// A call of any object and interface.
    std::string call(const char* path, const char* interface, const char* member) {
        sd_bus_message* message = nullptr;
        common::check(sd_bus_message_new_method_call(client_->bus(), &message,
                                                     camera::temperature_controller.name, path,
                                                     interface, member),
                      "new call");
        return client_->call(common::MessagePtr(message), std::chrono::seconds(20));
    }

    std::unique_ptr<BusClient> client_;
};

TEST_F(ControllerMethods, IntrospectionNamesEveryArgument) {
    const std::string answer = call("/com/tarlo/TemperatureController",
                                    "org.freedesktop.DBus.Introspectable", "Introspect");
    const std::string xml = common::Json::parse('[' + answer.substr(1, answer.size() - 2) + ']')[0];
    const std::size_t begin = xml.find("<interface name=\"com.tarlo.TemperatureController\">");
    ASSERT_NE(begin, std::string::npos) << xml;
    const std::string ours = xml.substr(begin, xml.find("</interface>", begin) - begin);
    Lines elements;
    static const std::regex element(
        "<(method|signal) name=\"([^\"]*)\"|<arg type=\"([^\"]*)\" name=\"([^\"]*)\""
        "(?: direction=\"([^\"]*)\")?|<arg[^>]*>");
    for (std::sregex_iterator it(ours.begin(), ours.end(), element), end; it != end; ++it) {
        const std::smatch& m = *it;
        if (m[1].matched)
            elements.push_back(m[1].str() + ' ' + m[2].str());
        else
            elements.push_back("  " + m[5].str() + ' ' + m[3].str() + ' ' + m[4].str());
    }
    EXPECT_THAT(
        elements,
        ElementsAre("method GetTemperatureIdFromName", "  in s name", "  out i id",
                    "method GetTemperature", "  in i id", "  in s name", "  out d temperature",
                    "method RegisterForTemperatureChangeSignal", "  in i sensor_id", "  in d delta",
                    "  out i signal_id", "method RegisterForTemperatureSignal", "  in i sensor_id",
                    "  in d limit", "  in b rising", "  out i signal_id", "  out b crossed",
                    "signal TemperatureChangeSignal", "   i signal_id", "   d temperature",
                    "signal TemperatureSignal", "   i signal_id"));
    close();
    EXPECT_THAT(with("\"call\"", told()), IsEmpty()) << "introspection is no news";
}

TEST_F(ControllerMethods, AnswerForTheSensorsThatThereAre) {
    EXPECT_EQ(client_->call("GetTemperatureIdFromName", "s", "main"), "(3)");
    EXPECT_EQ(client_->call("GetTemperatureIdFromName", "s", "housing"), "(5)");
    EXPECT_EQ(client_->call("GetTemperature", "is", 3, "main"), "(36.5)");
    handle({"set", "temperature.main", "--", "-inf"});
    EXPECT_EQ(client_->call("GetTemperature", "is", 3, "main"), "(\"-inf\")");
    EXPECT_EQ(client_->call("GetTemperature", "is", 5, "housing"), "(21.5)");
}

TEST_F(ControllerMethods, RefuseSensorsThatThereAreNot) {
    EXPECT_EQ(client_->call("GetTemperatureIdFromName", "s", "mian"),
              unknown_sensor + "Unknown sensor 'mian'.");
    EXPECT_EQ(client_->call("GetTemperatureIdFromName", "s", ""),
              unknown_sensor + "Unknown sensor ''.");
    EXPECT_EQ(client_->call("GetTemperature", "is", -1, "main"),
              unknown_sensor + "No sensor has the id -1.");
    EXPECT_EQ(client_->call("GetTemperature", "is", 3, "lens"),
              unknown_sensor + "The sensor with the id 3 is named 'main', not 'lens'.");
    EXPECT_EQ(client_->call("RegisterForTemperatureChangeSignal", "id", 99, 0.5),
              unknown_sensor + "No sensor has the id 99.");
    EXPECT_EQ(client_->call("RegisterForTemperatureSignal", "idb", 0, 60.0, 1),
              unknown_sensor + "No sensor has the id 0.");
    EXPECT_THAT(state()["services"][0]["registrations"], IsEmpty());
}

TEST_F(ControllerMethods, RegistrationsGetNumbersAndLimitsSayWhetherTheyAreCrossed) {
    EXPECT_EQ(client_->call("RegisterForTemperatureChangeSignal", "id", 3, 0.5), "(1)");
    EXPECT_EQ(client_->call("RegisterForTemperatureSignal", "idb", 3, 36.5, 1), "(2, false)");
    EXPECT_EQ(client_->call("RegisterForTemperatureSignal", "idb", 3, 36.5, 0), "(3, true)");
    EXPECT_EQ(client_->call("RegisterForTemperatureSignal", "idb", 4, 20.0, 1), "(4, true)");
    const std::string client = client_->unique_name();
    const common::Json registrations = state()["services"][0]["registrations"];
    Lines lines;
    for (const common::Json& registration : registrations)
        lines.push_back(common::json_line(registration));
    EXPECT_THAT(
        lines,
        ElementsAre(R"({"id":1,"client":")" + client +
                        R"(","what":"change of main by 0.5","delta":0.5,"reported":36.5})",
                    R"({"id":2,"client":")" + client +
                        R"(","what":"main above 36.5","limit":36.5,"rising":true,"beyond":false})",
                    R"({"id":3,"client":")" + client +
                        R"(","what":"main at or below 36.5","limit":36.5,"rising":false,)"
                        R"("beyond":true})",
                    R"({"id":4,"client":")" + client +
                        R"(","what":"lens above 20.0","limit":20.0,"rising":true,"beyond":true})"));
}

TEST_F(ControllerMethods, RefuseArgumentsOfAnotherSignature) {
    EXPECT_EQ(client_->call("GetTemperatureIdFromName", "i", 3),
              invalid + "GetTemperatureIdFromName takes 's', not 'i'.");
    EXPECT_EQ(client_->call("GetTemperatureIdFromName", ""),
              invalid + "GetTemperatureIdFromName takes 's', not ''.");
    EXPECT_EQ(client_->call("GetTemperature", "iss", 3, "main", "more"),
              invalid + "GetTemperature takes 'is', not 'iss'.");
    EXPECT_EQ(client_->call("RegisterForTemperatureSignal", "id", 3, 0.5),
              invalid + "RegisterForTemperatureSignal takes 'idb', not 'id'.");
}

TEST_F(ControllerMethods, RefuseWhatIsNotThere) {
    const char* path = "/com/tarlo/TemperatureController";
    const char* interface = "com.tarlo.TemperatureController";
    EXPECT_EQ(call(path, interface, "GetTemprature"),
              "org.freedesktop.DBus.Error.UnknownMethod: Unknown method 'GetTemprature'; did "
              "you mean 'GetTemperature'?");
    EXPECT_EQ(call(path, interface, "TemperatureSignal"),
              "org.freedesktop.DBus.Error.UnknownMethod: Unknown method 'TemperatureSignal'");
    EXPECT_EQ(call(path, "com.tarlo.Other", "GetTemperature"),
              "org.freedesktop.DBus.Error.UnknownInterface: The object "
              "'/com/tarlo/TemperatureController' does not have the interface 'com.tarlo.Other'.");
    EXPECT_EQ(call("/com/tarlo", interface, "GetTemperature"),
              "org.freedesktop.DBus.Error.UnknownObject: Unknown object '/com/tarlo'.");
    close();
    EXPECT_EQ(with("\"call\"", told()).size(), 4U) << "a refused call is news all the same";
}

TEST_F(ControllerMethods, ACallMayLeaveTheInterfaceOut) {
    const auto id_of_main = [this](const char* member) {
        sd_bus_message* call = nullptr;
        common::check(sd_bus_message_new_method_call(
                          client_->bus(), &call, camera::temperature_controller.name,
                          camera::temperature_controller.path, nullptr, member),
                      "new call");
        const common::MessagePtr owned(call);
        common::check(sd_bus_message_append(call, "s", "main"), "append");
        return client_->call(owned, std::chrono::seconds(20));
    };
    EXPECT_EQ(id_of_main("GetTemperatureIdFromName"), "(3)");
    EXPECT_EQ(id_of_main("GetTemperature"), invalid + "GetTemperature takes 'is', not 's'.");
    handle({"fail", "GetTemperatureIdFromName", "--malformed", "--times", "1"});
    EXPECT_EQ(id_of_main("GetTemperatureIdFromName"), "(\"malformed\")");
    EXPECT_EQ(id_of_main("GetTemperatureIdFromName"), "(3)");
}

TEST_F(ControllerMethods, ACallThatWantsNoReplyIsServedAndNotAnswered) {
    const common::MessagePtr message =
        client_->new_call("RegisterForTemperatureChangeSignal", "id", 3, 0.5);
    common::check(sd_bus_message_set_expect_reply(message.get(), 0), "expect no reply");
    common::check(sd_bus_send(client_->bus(), message.get(), nullptr), "send");
    const common::MessagePtr refused = client_->new_call("GetTemperature", "is", 0, "");
    common::check(sd_bus_message_set_expect_reply(refused.get(), 0), "expect no reply");
    common::check(sd_bus_send(client_->bus(), refused.get(), nullptr), "send");
    EXPECT_EQ(client_->call("GetTemperatureIdFromName", "s", "main"), "(3)");
    EXPECT_THAT(state()["services"][0]["registrations"].size(), 1U);
    close();
    EXPECT_EQ(with("\"call\"", told()).size(), 3U);
    EXPECT_THAT(with("\"reply\"", told()),
                ElementsAre(R"({"event":"reply","service":"temperature","member":)"
                            R"("GetTemperatureIdFromName","receiver":")" +
                            client_->unique_name() + R"(","values":[3]})"));
}

}  // namespace
}  // namespace test
