// The methods and signals of the temperature controller, and what every service refuses.
#include <nlohmann/json.hpp>

#include "tests/integration/camera/camera_scene.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

class ControllerMethods : public ClientScene {
  protected:
    void SetUp() override { open_for(camera::temperature_controller); }

    /// A call of any object and interface; null: of none.
    common::MessagePtr call_of(const char* path, const char* interface, const char* member) {
        sd_bus_message* message = nullptr;
        common::check(sd_bus_message_new_method_call(client_->bus(), &message,
                                                     camera::temperature_controller.name, path,
                                                     interface, member),
                      "new call");
        return common::MessagePtr(message);
    }
    std::string answer_of(const char* path, const char* interface, const char* member) {
        return client_->call(call_of(path, interface, member), seconds(20));
    }
};

TEST_F(ControllerMethods, IntrospectionNamesEveryArgument) {
    const std::string answer = answer_of("/com/tarlo/TemperatureController",
                                         "org.freedesktop.DBus.Introspectable", "Introspect");
    const std::string xml =
        common::parse_json('[' + answer.substr(1, answer.size() - 2) + ']', "the text")[0];
    const std::size_t begin = xml.find("<interface name=\"com.tarlo.TemperatureController\">");
    ASSERT_NE(begin, std::string::npos) << xml;
    const std::string ours = xml.substr(begin, xml.find("</interface>", begin) - begin);
    std::string elements;
    static const Pattern element(
        "<(method|signal) name=\"([^\"]*)\"|<arg type=\"([^\"]*)\" name=\"([^\"]*)\""
        "(?: direction=\"([^\"]*)\")?|<arg[^>]*>");
    for (const Groups& m : element.find_all(ours)) {
        elements +=
            m[1].empty() ? "  " + m[5] + ' ' + m[3] + ' ' + m[4] + '\n' : m[1] + ' ' + m[2] + '\n';
    }
    EXPECT_EQ(elements, R"(method GetTemperatureIdFromName
  in s name
  out i id
method GetTemperature
  in i id
  in s name
  out d temperature
method RegisterForTemperatureChangeSignal
  in i sensor_id
  in d delta
  out i signal_id
method RegisterForTemperatureSignal
  in i sensor_id
  in d limit
  in b rising
  out i signal_id
  out b crossed
signal TemperatureChangeSignal
   i signal_id
   d temperature
signal TemperatureSignal
   i signal_id
)");
    close();
    EXPECT_THAT(told("call"), IsEmpty()) << "introspection is no news";
}

TEST_F(ControllerMethods, AnswerForTheSensorsThatThereAre) {
    EXPECT_EQ(call("GetTemperatureIdFromName", "s", "main"), "(3)");
    EXPECT_EQ(call("GetTemperatureIdFromName", "s", "housing"), "(5)");
    EXPECT_EQ(call("GetTemperature", "is", 3, "main"), "(36.5)");
    handle({"set", "temperature.main", "--", "-inf"});
    EXPECT_EQ(call("GetTemperature", "is", 3, "main"), "(\"-inf\")");
    EXPECT_EQ(call("GetTemperature", "is", 5, "housing"), "(21.5)");
}

TEST_F(ControllerMethods, RefuseSensorsThatThereAreNot) {
    const std::string unknown = "com.tarlo.TemperatureController.Error.UnknownSensor: ";
    EXPECT_EQ(call("GetTemperatureIdFromName", "s", "mian"), unknown + "Unknown sensor 'mian'.");
    EXPECT_EQ(call("GetTemperatureIdFromName", "s", ""), unknown + "Unknown sensor ''.");
    EXPECT_EQ(call("GetTemperature", "is", -1, "main"), unknown + "No sensor has the id -1.");
    EXPECT_EQ(call("GetTemperature", "is", 3, "lens"),
              unknown + "The sensor with the id 3 is named 'main', not 'lens'.");
    EXPECT_EQ(call("RegisterForTemperatureChangeSignal", "id", 99, 0.5),
              unknown + "No sensor has the id 99.");
    EXPECT_EQ(call("RegisterForTemperatureSignal", "idb", 0, 60.0, 1),
              unknown + "No sensor has the id 0.");
    EXPECT_THAT(service("temperature")["registrations"], IsEmpty());
}

TEST_F(ControllerMethods, RegistrationsGetNumbersAndLimitsSayWhetherTheyAreCrossed) {
    EXPECT_EQ(call("RegisterForTemperatureChangeSignal", "id", 3, 0.5), "(1)");
    EXPECT_EQ(call("RegisterForTemperatureSignal", "idb", 3, 36.5, 1), "(2, false)");
    EXPECT_EQ(call("RegisterForTemperatureSignal", "idb", 3, 36.5, 0), "(3, true)");
    EXPECT_EQ(call("RegisterForTemperatureSignal", "idb", 4, 20.0, 1), "(4, true)");
    const std::string client = R"(,"client":")" + client_->unique_name() + R"(","what":")";
    EXPECT_EQ(common::json_line(service("temperature")["registrations"]),
              R"([{"id":1)" + client + R"(change of main by 0.5","delta":0.5,"reported":36.5},)" +
                  R"({"id":2)" + client +
                  R"(main above 36.5","limit":36.5,"rising":true,"beyond":false},)" + R"({"id":3)" +
                  client + R"(main at or below 36.5","limit":36.5,"rising":false,"beyond":true},)" +
                  R"({"id":4)" + client +
                  R"(lens above 20.0","limit":20.0,"rising":true,"beyond":true}])");
}

TEST_F(ControllerMethods, RefuseWhatIsNotThere) {
    const char* path = "/com/tarlo/TemperatureController";
    const char* interface = "com.tarlo.TemperatureController";
    const std::string error = "org.freedesktop.DBus.Error.";
    EXPECT_EQ(answer_of(path, interface, "GetTemprature"),
              error +
                  "UnknownMethod: Unknown method 'GetTemprature'; did you mean "
                  "'GetTemperature'?");
    EXPECT_EQ(answer_of(path, interface, "TemperatureSignal"),
              error + "UnknownMethod: Unknown method 'TemperatureSignal'");
    EXPECT_EQ(
        answer_of(path, "com.tarlo.Other", "GetTemperature"),
        error +
            "UnknownInterface: The object '/com/tarlo/TemperatureController' does not have the "
            "interface 'com.tarlo.Other'.");
    EXPECT_EQ(answer_of("/com/tarlo", interface, "GetTemperature"),
              error + "UnknownObject: Unknown object '/com/tarlo'.");
    close();
    EXPECT_THAT(told("call"), SizeIs(4)) << "a refused call is news all the same";
}

TEST_F(ControllerMethods, ACallMayLeaveTheInterfaceOut) {
    const auto id_of_main = [this](const char* member) {
        const common::MessagePtr call =
            call_of(camera::temperature_controller.path, nullptr, member);
        common::check(sd_bus_message_append(call.get(), "s", "main"), "append");
        return client_->call(call, seconds(20));
    };
    EXPECT_EQ(id_of_main("GetTemperatureIdFromName"), "(3)");
    EXPECT_EQ(id_of_main("GetTemperature"),
              "org.freedesktop.DBus.Error.InvalidArgs: GetTemperature takes 'is', not 's'.");
    fail({"GetTemperatureIdFromName", "--malformed", "--times", "1"});
    EXPECT_EQ(id_of_main("GetTemperatureIdFromName"), "(\"malformed\")");
    EXPECT_EQ(id_of_main("GetTemperatureIdFromName"), "(3)");
}

TEST_F(ControllerMethods, ACallThatWantsNoReplyIsServedAndNotAnswered) {
    call_without_reply("RegisterForTemperatureChangeSignal", "id", 3, 0.5);
    call_without_reply("GetTemperature", "is", 0, "");
    EXPECT_EQ(call("GetTemperatureIdFromName", "s", "main"), "(3)");
    EXPECT_THAT(service("temperature")["registrations"], SizeIs(1));
    close();
    EXPECT_THAT(told("call"), SizeIs(3));
    EXPECT_THAT(told("reply"), ElementsAre(R"({"event":"reply","service":"temperature","member":)"
                                           R"("GetTemperatureIdFromName","receiver":")" +
                                           client_->unique_name() + R"(","values":[3]})"));
}

class ControllerSignals : public ClientScene {
  protected:
    void SetUp() override {
        open_for(camera::temperature_controller);
        client_->listen();
    }

    /// Sets the sensor "main" and gives the signals that came of it: all of them, because the
    /// answer to a call comes after every signal that was sent before it.
    Lines set(const std::string& temperature) {
        client_->forget();
        handle({"set", "temperature.main", "--", temperature});
        send("GetTemperatureIdFromName", "s", "main");
        Lines heard;
        do
            heard = client_->wait_for(heard.size() + 1);
        while (!heard.back().starts_with("GetTemperatureIdFromName"));
        heard.pop_back();
        return heard;
    }

    std::string change(double delta) {
        return call("RegisterForTemperatureChangeSignal", "id", 3, delta);
    }
};

TEST_F(ControllerSignals, AreBroadcastInTheOrderOfRegistration) {
    BusClient other(address());
    other.listen();
    EXPECT_THAT(set("36.5"), IsEmpty());
    EXPECT_EQ(change(1.0), "(1)");
    EXPECT_EQ(other.call("RegisterForTemperatureSignal", "idb", 3, 60.0, 1), "(2, false)");
    EXPECT_EQ(other.call("RegisterForTemperatureChangeSignal", "id", 4, 0.0), "(3)");
    EXPECT_EQ(change(0.0), "(4)");
    const Lines all = {"TemperatureChangeSignal(1, 70.0)", "TemperatureSignal(2)",
                       "TemperatureChangeSignal(4, 70.0)"};
    EXPECT_EQ(set("70"), all);
    EXPECT_EQ(other.wait_for(3), all);
    EXPECT_THAT(set("70.5"), ElementsAre("TemperatureChangeSignal(4, 70.5)"));
}

TEST_F(ControllerSignals, EndWithTheClientThatWantedThem) {
    const std::string leaver = [this] {
        BusClient other(address());
        EXPECT_EQ(other.call("RegisterForTemperatureChangeSignal", "id", 3, 0.0), "(1)");
        EXPECT_EQ(other.call("RegisterForTemperatureSignal", "idb", 3, 60.0, 1), "(2, false)");
        return other.unique_name();
    }();
    {
        BusClient silent(address());
        EXPECT_EQ(silent.call("GetTemperatureIdFromName", "s", "main"), "(3)");
    }
    ASSERT_TRUE(camera().wait_for_text("\"dropped\""));
    EXPECT_EQ(change(1.0), "(3)");
    EXPECT_THAT(set("70"), ElementsAre("TemperatureChangeSignal(3, 70.0)"));
    close();
    EXPECT_THAT(told("dropped"), ElementsAre(R"({"event":"dropped","service":"temperature",)"
                                             R"("client":")" +
                                             leaver + R"(","registrations":2})"))
        << "a client without a registration is no news";
}

TEST_F(ControllerSignals, OfAServiceThatIsDownAreNotSent) {
    EXPECT_EQ(change(0.0), "(1)");
    handle({"stop", "temperature"});
    handle({"set", "temperature.main", "70"});
    handle({"start", "temperature"});
    EXPECT_EQ(call("GetTemperature", "is", 3, "main"), "(70.0)");
    close();
    EXPECT_THAT(told("signal"), IsEmpty());
}

}  // namespace
}  // namespace test
