// Scenarios about power: values, reads and shares to wait for.
#include <gmock/gmock.h>

#include "camera/service/properties.hpp"
#include "tests/integration/camera/consumer_client.hpp"
#include "tests/integration/camera/scenario_scene.hpp"

namespace test {
namespace {

using PowerScenario = ScenarioScene;

TEST_F(PowerScenario, WaitsForTheSharesOfConsumers) {
    begin(R"([[steps]]
set = {power.budget = 6}
expect = {state = "power.share.vipd0", is = 4.5, within = 20}
[[steps]]
expect = {state = "power.share.vipd1", is = 1.5, within = 20}
[[steps]]
expect = {state = "power.left", is = 0}
set = {power.budget = 100}
[[steps]]
expect = {state = "power.share.vipd1", is = "none", within = 20}
)");
    ConsumerClient a(address_, 0);
    EXPECT_EQ(a.register_consumer(), "()");
    EXPECT_EQ(a.request(4.5), "()");
    {
        ConsumerClient b(address_, 1);
        EXPECT_EQ(b.register_consumer(), "()");
        EXPECT_EQ(b.request(8.0), "()");
        b.wait_for(2);
        EXPECT_EQ(b.heard().back(), "SetPower(8.0)");
    }
    const Ended ended = end();
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(with("\"met\":true", lines(ended.out)).size(), 4U);
}

TEST_F(PowerScenario, WaitsForReadsOfTheProperty) {
    begin(R"([[steps]]
ramp = {power.received = 10, over = 0.2}
fail = {member = "PowerReceived", error = "com.example.Error.Busy", times = 1}
expect = {call = "power-status.Get", arguments = ["com.tarlo.PowerControl.Status", "PowerReceived"], within = 20}
)");
    BusClient client(address_, {camera::power_status.name, camera::power_status.path,
                                camera::properties_interface});
    EXPECT_EQ(client.call("Get", "ss", "com.tarlo.PowerControl.Status", "PowerReceived"),
              "com.example.Error.Busy: A fault rule answers this call.");
    const Ended ended = end();
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(with("\"set\"", with("power.received", lines(ended.out))).back(),
              R"({"event":"set","name":"power.received","value":10.0})");
}

TEST_F(PowerScenario, FailsWhereAShareDoesNotCome) {
    const Ended ended =
        play("[[steps]]\nexpect = {state = \"power.share.vipd0\", is = 1, within = 0.1}\n");
    EXPECT_EQ(ended.code, 1);
    EXPECT_EQ(plain(ended.err),
              "fenwa-camera: s.toml:1:1: expected power.share.vipd0 to be 1.0 within 0.1 s; no "
              "calls received\n");
}

}  // namespace
}  // namespace test
