// The received power as a property, right and wrong.
#include "camera/service/properties.hpp"
#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

const char* const interface = "com.tarlo.PowerControl.Status";
const std::string all_right = R"(({"PowerReceived":25.0}))";

/// The status object as a client sees it that reads its properties.
constexpr camera::BusObject properties{camera::power_status.name, camera::power_status.path,
                                       camera::properties_interface};

class PowerStatus : public ClientScene {
  protected:
    void SetUp() override {
        open_for(properties, {.activation = true});
        client_->listen();
    }

    std::string get(const char* property = "PowerReceived") {
        return call("Get", "ss", interface, property);
    }
    std::string get_all() { return call("GetAll", "s", interface); }
    void set(const std::string& power) { handle({"set", "power.received", "--", power}); }

    /// Runs `busctl COMMAND` on the status object and gives what it prints.
    std::string busctl(const std::string& command, const Lines& arguments) {
        const Ended ended = run_program(Lines{"busctl", "--address=" + address(), "--no-pager",
                                              command, properties.name, properties.path} +
                                        arguments);
        EXPECT_EQ(ended.code, 0) << ended.err;
        return ended.out;
    }
    std::string get_with_busctl() {
        return busctl("call", {properties.interface, "Get", "ss", interface, "PowerReceived"});
    }
};

TEST_F(PowerStatus, IsReadAsAnyOtherProperty) {
    EXPECT_EQ(get(), "(25.0)");
    EXPECT_EQ(get_all(), all_right);
    EXPECT_EQ(busctl("get-property", {interface, "PowerReceived"}), "d 25\n");
    EXPECT_THAT(busctl("introspect", {interface}),
                ContainsRegex("\\.PowerReceived +property +d +25 +emits-change"));
    set("nan");
    EXPECT_EQ(get(), "(\"nan\")");
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
    for (const char* power : {"12", "12", "nan", "nan", "-inf"})
        set(power);
    const std::string begin = "PropertiesChanged(\"com.tarlo.PowerControl.Status\", ";
    EXPECT_THAT(client_->wait_for(3), ElementsAre(begin + R"({"PowerReceived":12.0}, []))",
                                                  begin + R"({"PowerReceived":"nan"}, []))",
                                                  begin + R"({"PowerReceived":"-inf"}, []))"));
    close();
    EXPECT_THAT(told("signal"), SizeIs(3));
}

TEST_F(PowerStatus, IsReadOnlyAndHasOneProperty) {
    const std::string error = "org.freedesktop.DBus.Error.";
    EXPECT_EQ(call("Set", "ssv", interface, "PowerReceived", "d", 3.0),
              error + "PropertyReadOnly: The property 'PowerReceived' is read-only.");
    fail({"Get", "--silent", "--times", "1"});
    EXPECT_EQ(get("PowerRecieved"), error +
                                        "UnknownProperty: Unknown property 'PowerRecieved'; "
                                        "did you mean 'PowerReceived'?");
    EXPECT_EQ(call("Get", "s", interface), error + "InvalidArgs: Get takes 'ss', not 's'.");
    EXPECT_EQ(call("Git", "s", interface), error + "UnknownMethod: Unknown method 'Git'");
    EXPECT_THAT(call("Get", "ss", "com.example.A", "PowerReceived"), StartsWith(error));
    EXPECT_THAT(state()["faults"], SizeIs(1)) << "a read that is refused anyway uses no rule up";
}

TEST_F(PowerStatus, OutlivesARestartAndComesBackWhenItIsRead) {
    set("12");
    handle({"restart", "power-status"});
    EXPECT_EQ(get(), "(12.0)");
    handle({"stop", "power-status"});
    set("13");
    EXPECT_EQ(get(), "(13.0)");
    close();
    EXPECT_THAT(told("signal"), SizeIs(1)) << "nobody signals who is down";
}

TEST_F(PowerStatus, AFaultOfThePropertyActsOnBothWaysToReadIt) {
    fail({"PowerReceived", "--error", "com.example.Error.Busy", "--times", "2"});
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
    EXPECT_EQ(get_with_busctl(), "v s \"malformed\"\n");
    fail({"PowerReceived", "--clear"});
    fail({"Get", "--malformed"});
    EXPECT_EQ(get_with_busctl(), "s \"malformed\"\n")
        << "the method's own fault spoils the whole body";
}

TEST_F(PowerStatus, AFaultOfThePropertyGoesAheadOfOneOfTheMethod) {
    fail({"Get", "--error", "com.example.Error.Method"});
    fail({"PowerReceived", "--error", "com.example.Error.Property", "--times", "1"});
    EXPECT_THAT(get(), StartsWith("com.example.Error.Property: "));
    EXPECT_THAT(get(), StartsWith("com.example.Error.Method: "));
    EXPECT_EQ(get_all(), all_right);
}

TEST_F(PowerStatus, AReadMayBeLateOrNeverAnsweredOrTakeTheServiceOffTheBus) {
    fail({"PowerReceived", "--delay", "1000", "--times", "1"});
    send("Get", "ss", interface, "PowerReceived");
    send("GetAll", "s", interface);
    EXPECT_THAT(client_->wait_for(2),
                ElementsAre("GetAll answers " + all_right, "Get answers (25.0)"));
    fail({"PowerReceived", "--silent", "--times", "1"});
    EXPECT_EQ(client_->call(client_->new_call("Get", "ss", interface, "PowerReceived"),
                            milliseconds(300)),
              "org.freedesktop.DBus.Error.Timeout: Connection timed out");
    fail({"PowerReceived", "--drop", "--times", "1"});
    EXPECT_THAT(get(), StartsWith("org.freedesktop.DBus.Error.NoReply: "));
    EXPECT_EQ(get(), "(25.0)") << "the next read brings it back";
}

TEST_F(PowerStatus, ItsSignalMayGoWrong) {
    fail({"PropertiesChanged", "--silent", "--times", "1"});
    set("1");
    fail({"PropertiesChanged", "--malformed", "--times", "1"});
    set("2");
    fail({"PropertiesChanged", "--delay", "2000", "--times", "1"});
    set("3");
    set("4");
    const std::string begin = "PropertiesChanged(\"com.tarlo.PowerControl.Status\", ";
    EXPECT_THAT(client_->wait_for(3), ElementsAre(begin + R"({"PowerReceived":"malformed"}, []))",
                                                  begin + R"({"PowerReceived":4.0}, []))",
                                                  begin + R"({"PowerReceived":3.0}, []))"));
    EXPECT_EQ(get(), "(4.0)");
}

}  // namespace
}  // namespace test
