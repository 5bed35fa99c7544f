// What the power controller refuses.
#include <gmock/gmock.h>

#include <limits>

#include "camera/models/power.hpp"
#include "tests/integration/camera/power_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string error = "com.tarlo.PowerControl.Consumer.Error.";

using PowerRefusals = PowerScene;

TEST_F(PowerRefusals, ANameBelongsToTheClientThatRegisteredIt) {
    open();
    const auto a = consumer(0);
    EXPECT_EQ(a->request(4.0), "()");
    EXPECT_EQ(a->register_consumer(), "()") << "the same again";
    EXPECT_THAT(shares(), ElementsAre("vipd0 4.0"));
    BusClient other(address(), camera::power_consumers);
    const std::string sentence =
        error + "OwnedByAnother: Another client has registered the consumer 'vipd0'.";
    EXPECT_EQ(other.call("Register", "sbsss", "vipd0", 0, "com.example.A", "/", "com.example.A"),
              sentence);
    EXPECT_EQ(other.call("RequestPower", "ssd", "vipd0", "control", 1.0), sentence);
    EXPECT_EQ(other.call("Unregister", "s", "vipd0"), sentence);
    EXPECT_EQ(other.call("RequestPower", "ssd", "vipd1", "control", 1.0),
              error + "NotRegistered: No consumer is registered as 'vipd1'.");
    EXPECT_EQ(other.call("Unregister", "s", "vipd1"),
              error + "NotRegistered: No consumer is registered as 'vipd1'.");
    EXPECT_THAT(shares(), ElementsAre("vipd0 4.0"));
}

TEST_F(PowerRefusals, AreForWhatMakesNoSense) {
    open();
    const auto a = consumer(0);
    const auto reg = [&](const char* name, const char* service, const char* path,
                         const char* interface) {
        return a->call("Register", "sbsss", name, 0, service, path, interface);
    };
    const std::string address_error = error + "InvalidAddress: ";
    EXPECT_EQ(reg("x", "nonsense", "/", "com.example.A"),
              address_error + "'nonsense' is not a valid bus name.");
    EXPECT_EQ(reg("x", "com.example.A", "x/", "com.example.A"),
              address_error + "'x/' is not a valid object path.");
    EXPECT_EQ(reg("x", "com.example.A", "/", "A"),
              address_error + "'A' is not a valid interface name.");
    EXPECT_EQ(reg("", "com.example.A", "/", "com.example.A"),
              error + "InvalidName: A consumer's name must have 1 to 255 bytes, not 0.");
    EXPECT_EQ(reg(std::string(256, 'x').c_str(), "com.example.A", "/", "com.example.A"),
              error + "InvalidName: A consumer's name must have 1 to 255 bytes, not 256.");
    const std::string request_error =
        error + "InvalidRequest: The power must be a finite number of at least 0, not ";
    EXPECT_EQ(a->request(-0.5), request_error + "-0.5.");
    EXPECT_EQ(a->request(std::numeric_limits<double>::quiet_NaN()), request_error + "nan.");
    EXPECT_EQ(a->request(std::numeric_limits<double>::infinity()), request_error + "inf.");
    EXPECT_EQ(a->call("RequestPower", "sd", "vipd0", 1.0),
              "org.freedesktop.DBus.Error.InvalidArgs: RequestPower takes 'ssd', not 'sd'.");
    EXPECT_THAT(shares(), ElementsAre("vipd0 0.0"));
    EXPECT_THAT(a->heard(), IsEmpty());
}

TEST_F(PowerRefusals, TakesSoManyConsumersAndNoMore) {
    open();
    BusClient client(address(), camera::power_consumers);
    const auto add = [&](std::size_t number) {
        return client.call("Register", "sbsss", std::to_string(number).c_str(), 0, "com.example.A",
                           "/", "com.example.A");
    };
    for (std::size_t i = 0; i < camera::PowerModel::max_consumers; ++i) {
        ASSERT_EQ(add(i), "()");
        ASSERT_TRUE(camera().wait_for_text("\"reply\"")) << "its lines are to be read";
    }
    EXPECT_EQ(add(camera::PowerModel::max_consumers),
              error + "TooManyConsumers: At most 1024 consumers are accepted.");
    EXPECT_EQ(add(0), "()");
}

}  // namespace
}  // namespace test
