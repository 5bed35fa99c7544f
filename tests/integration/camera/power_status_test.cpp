// The received power as a property, right and wrong.
#include <gmock/gmock.h>

#include "camera/service/properties.hpp"
#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const char* const interface = "com.tarlo.PowerControl.Status";
const std::string all_right = R"(({"PowerReceived":25.0}))";

class PowerStatus : public CameraScene {
  protected:
    void SetUp() override {
        open({.activation = true});
        client_ = std::make_unique<BusClient>(address(), properties);
        client_->listen();
    }

    /// The status object as a client sees it that reads its properties.
    static constexpr camera::BusObject properties{
        camera::power_status.name, camera::power_status.path, camera::properties_interface};

    std::string get(const char* property = "PowerReceived") {
        return client_->call("Get", "ss", interface, property);
    }
    std::string get_all() { return client_->call("GetAll", "s", interface); }

    void fail(std::vector<std::string> rule) {
        rule.insert(rule.begin(), "fail");
        handle(rule);
    }

    /// Runs `busctl` on the scene's bus and gives what it prints.
    std::string busctl(const std::vector<std::string>& arguments) {
        std::vector<std::string> command{"busctl", "--address=" + address(), "--no-pager"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const Ended ended = run_program(command);
        EXPECT_EQ(ended.code, 0) << ended.err;
        return ended.out;
    }

    std::unique_ptr<BusClient> client_;
};

TEST_F(PowerStatus, IsReadAsAnyOtherProperty) {
    EXPECT_EQ(get(), "(25.0)");
    EXPECT_EQ(get_all(), all_right);
    EXPECT_EQ(
        busctl({"get-property", properties.name, properties.path, interface, "PowerReceived"}),
        "d 25\n");
    const std::string shown = busctl({"introspect", properties.name, properties.path, interface});
    EXPECT_THAT(shown, ::testing::ContainsRegex("\\.PowerReceived +property +d +25 +emits-change"));
    handle({"set", "power.received", "nan"});
    EXPECT_EQ(get(), "(\"nan\")");
    close();
    EXPECT_EQ(ended().code, 0) << ended().err;
}

TEST_F(PowerStatus, ReadsAreNewsAndAreAnswered) {
    EXPECT_EQ(get(), "(25.0)");
    close();
    const std::string client = client_->unique_name();
    EXPECT_EQ(told(),
              whole({R"({"event":"call","service":"power-status","member":"Get","arguments":)"
                     R"(["com.tarlo.PowerControl.Status","PowerReceived"],"sender":")" +
                         client + R"("})",
                     R"({"event":"reply","service":"power-status","member":"Get","receiver":")" +
                         client + R"(","values":[25.0]})"}));
}

TEST_F(PowerStatus, ChangesAreSignalledWithTheValue) {
    handle({"set", "power.received", "12"});
    handle({"set", "power.received", "12"});
    handle({"set", "power.received", "nan"});
    handle({"set", "power.received", "nan"});
    handle({"set", "power.received", "--", "-inf"});
    const std::string begin = "PropertiesChanged(\"com.tarlo.PowerControl.Status\", ";
    EXPECT_THAT(client_->wait_for(3), ElementsAre(begin + R"({"PowerReceived":12.0}, []))",
                                                  begin + R"({"PowerReceived":"nan"}, []))",
                                                  begin + R"({"PowerReceived":"-inf"}, []))"));
    close();
    EXPECT_EQ(with("\"signal\"", told()).size(), 3U);
}

TEST_F(PowerStatus, IsReadOnlyAndHasOneProperty) {
    const std::string error = "org.freedesktop.DBus.Error.";
    EXPECT_EQ(client_->call("Set", "ssv", interface, "PowerReceived", "d", 3.0),
              error + "PropertyReadOnly: The property 'PowerReceived' is read-only.");
    EXPECT_EQ(get("PowerRecieved"), error +
                                        "UnknownProperty: Unknown property 'PowerRecieved'; "
                                        "did you mean 'PowerReceived'?");
    EXPECT_EQ(client_->call("Get", "s", interface),
              error + "InvalidArgs: Get takes 'ss', not 's'.");
    EXPECT_EQ(client_->call("Git", "s", interface), error + "UnknownMethod: Unknown method 'Git'");
    EXPECT_THAT(client_->call("Get", "ss", "com.example.A", "PowerReceived"), StartsWith(error));
    EXPECT_EQ(get(), "(25.0)");
}

TEST_F(PowerStatus, OutlivesARestartAndComesBackWhenItIsRead) {
    handle({"set", "power.received", "12"});
    handle({"restart", "power-status"});
    EXPECT_EQ(get(), "(12.0)");
    handle({"stop", "power-status"});
    handle({"set", "power.received", "13"});
    EXPECT_EQ(get(), "(13.0)");
    close();
    EXPECT_EQ(with("\"signal\"", told()).size(), 1U) << "nobody signals who is down";
}

TEST_F(PowerStatus, AFaultOfThePropertyActsOnBothWaysToReadIt) {
    fail({"PowerReceived", "--error", "com.example.Error.Busy", "--times", "2"});
    const std::string busy = "com.example.Error.Busy: A fault rule answers this call.";
    EXPECT_EQ(get(), busy);
    EXPECT_EQ(get_all(), busy);
    EXPECT_EQ(get(), "(25.0)");
    fail({"power-status.PowerReceived", "--malformed", "--times", "2"});
    EXPECT_EQ(get(), "(\"malformed\")");
    EXPECT_EQ(get_all(), R"(({"PowerReceived":"malformed"}))") << "the value alone is wrong";
    EXPECT_EQ(get_all(), all_right);
}

TEST_F(PowerStatus, AMalformedPropertyIsAVariantOfAnotherType) {
    fail({"PowerReceived", "--malformed"});
    EXPECT_EQ(busctl({"call", properties.name, properties.path, properties.interface, "Get", "ss",
                      interface, "PowerReceived"}),
              "v s \"malformed\"\n");
    fail({"PowerReceived", "--clear"});
    fail({"Get", "--malformed"});
    EXPECT_EQ(busctl({"call", properties.name, properties.path, properties.interface, "Get", "ss",
                      interface, "PowerReceived"}),
              "s \"malformed\"\n")
        << "the method's own fault spoils the whole body";
}

TEST_F(PowerStatus, AFaultOfThePropertyGoesAheadOfOneOfTheMethod) {
    fail({"Get", "--error", "com.example.Error.Method"});
    fail({"PowerReceived", "--error", "com.example.Error.Property", "--times", "1"});
    EXPECT_THAT(get(), StartsWith("com.example.Error.Property: "));
    EXPECT_THAT(get(), StartsWith("com.example.Error.Method: "));
    EXPECT_EQ(get_all(), all_right);
}

TEST_F(PowerStatus, AReadMayBeLateOrNeverAnswered) {
    fail({"PowerReceived", "--delay", "1000", "--times", "1"});
    client_->send("Get", "ss", interface, "PowerReceived");
    client_->send("GetAll", "s", interface);
    EXPECT_THAT(client_->wait_for(2),
                ElementsAre("GetAll answers " + all_right, "Get answers (25.0)"));
    fail({"PowerReceived", "--silent", "--times", "1"});
    EXPECT_EQ(client_->call(client_->new_call("Get", "ss", interface, "PowerReceived"),
                            milliseconds(300)),
              "org.freedesktop.DBus.Error.Timeout: Connection timed out");
    EXPECT_EQ(get(), "(25.0)");
}

TEST_F(PowerStatus, AReadMayTakeTheServiceOffTheBus) {
    fail({"PowerReceived", "--drop", "--times", "1"});
    EXPECT_THAT(get(), StartsWith("org.freedesktop.DBus.Error.NoReply: "));
    EXPECT_EQ(get(), "(25.0)") << "the next read brings it back";
}

TEST_F(PowerStatus, AReadThatIsRefusedAnywayDoesNotUseARuleUp) {
    fail({"Get", "--silent", "--times", "1"});
    EXPECT_THAT(get("Nothing"), HasSubstr("UnknownProperty"));
    EXPECT_EQ(state()["faults"].size(), 1U);
}

TEST_F(PowerStatus, ItsSignalMayGoWrong) {
    fail({"PropertiesChanged", "--silent", "--times", "1"});
    handle({"set", "power.received", "1"});
    fail({"PropertiesChanged", "--malformed", "--times", "1"});
    handle({"set", "power.received", "2"});
    fail({"PropertiesChanged", "--delay", "2000", "--times", "1"});
    handle({"set", "power.received", "3"});
    handle({"set", "power.received", "4"});
    const std::string begin = "PropertiesChanged(\"com.tarlo.PowerControl.Status\", ";
    EXPECT_THAT(client_->wait_for(3), ElementsAre(begin + R"({"PowerReceived":"malformed"}, []))",
                                                  begin + R"({"PowerReceived":4.0}, []))",
                                                  begin + R"({"PowerReceived":3.0}, []))"));
    EXPECT_THAT(get(), "(4.0)");
}

}  // namespace
}  // namespace test
