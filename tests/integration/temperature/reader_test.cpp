#include <gmock/gmock.h>

#include "tests/integration/temperature/scene.hpp"

namespace test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

using Lines = std::vector<std::string>;

Lines operator+(Lines a, const Lines& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// The pieces that the traffic of a reader is made of.

const Lines follows_the_owner{
    R"(client calls daemon: Hello())",
    R"(daemon replies to client: ("client"))",
    R"(daemon signals client: NameAcquired("client"))",
    R"(client calls daemon: AddMatch("type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'"))",
    R"(daemon replies to client: ())",
    R"(client calls daemon: GetNameOwner("com.tarlo.TemperatureController"))",
};
const Lines owner_there{R"(daemon replies to client: ("service"))"};
const Lines no_owner{
    R"(daemon refuses client: org.freedesktop.DBus.Error.NameHasNoOwner("Could not get owner of name 'com.tarlo.TemperatureController': no such name"))",
};
const Lines owner_comes{
    R"(daemon signals: NameOwnerChanged("com.tarlo.TemperatureController", "", "service"))",
};
const Lines matches_the_signal{
    R"(client calls daemon: AddMatch("type='signal',sender='com.tarlo.TemperatureController',path='/com/tarlo/TemperatureController',interface='com.tarlo.TemperatureController',member='TemperatureChangeSignal'"))",
    R"(daemon replies to client: ())",
};
const Lines registers{
    R"(client calls service: GetTemperatureIdFromName("main"))",
    R"(service replies to client: (3))",
    R"(client calls service: RegisterForTemperatureChangeSignal(3, 0.5))",
    R"(service replies to client: (1))",
};
const Lines fetches{
    R"(client calls service: GetTemperature(3, "main"))",
    R"(service replies to client: (36.5))",
};
const Lines leaves{
    R"(client calls daemon: RemoveMatch("type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'"))",
    R"(client calls daemon: RemoveMatch("type='signal',sender='com.tarlo.TemperatureController',path='/com/tarlo/TemperatureController',interface='com.tarlo.TemperatureController',member='TemperatureChangeSignal'"))",
    R"(daemon signals client: NameLost("client"))",
};

const std::string ready = R"({"event":"ready"})";
const std::string done = R"({"event":"exit","status":0})";

using ReaderTest = TemperatureScene;

TEST_F(ReaderTest, PublishesTheReadingsOfAServiceThatIsThereBefore) {
    open();
    start_host();
    wait_for_output("36.5");
    camera({"set", "temperature.main", "40"});
    wait_for_output("40.0");
    close();

    EXPECT_THAT(traffic(),
                ElementsAreArray(
                    follows_the_owner + owner_there + matches_the_signal + registers + fetches +
                    Lines{"service signals: TemperatureChangeSignal(1, 40.0)"} + leaves));
    EXPECT_THAT(events(), ElementsAre(ready, debug_event("36.5"), output_event("36.5"),
                                      debug_event("40.0"), output_event("40.0"), done));
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(ended().err, "");
}

TEST_F(ReaderTest, WaitsForAServiceThatAppearsLater) {
    open({.controller_there = false});
    start_host();
    camera({"start", "temperature"});
    wait_for_output("36.5");
    close();

    EXPECT_THAT(traffic(), ElementsAreArray(follows_the_owner + no_owner + owner_comes +
                                            matches_the_signal + registers + fetches + leaves));
    EXPECT_THAT(events(), ElementsAre(ready, debug_event("36.5"), output_event("36.5"), done));
}

TEST_F(ReaderTest, RegistersAgainWithARestartedServiceAndDoesNotFetchAgain) {
    open();
    start_host();
    wait_for_output("36.5");
    camera({"stop", "temperature"});
    camera({"start", "temperature"});
    wait_for_camera("\"member\":\"RegisterForTemperatureChangeSignal\"");
    wait_for_camera("\"member\":\"RegisterForTemperatureChangeSignal\"");
    camera({"set", "temperature.main", "41.25"});
    wait_for_output("41.25");
    close();

    EXPECT_THAT(
        traffic(),
        ElementsAreArray(
            follows_the_owner + owner_there + matches_the_signal + registers + fetches +
            Lines{
                R"(daemon signals: NameOwnerChanged("com.tarlo.TemperatureController", "service", ""))",
                R"(daemon signals: NameOwnerChanged("com.tarlo.TemperatureController", "", "service 2"))",
                R"(client calls service: GetTemperatureIdFromName("main"))",
                R"(service 2 replies to client: (3))",
                R"(client calls service: RegisterForTemperatureChangeSignal(3, 0.5))",
                R"(service 2 replies to client: (2))",
                R"(service 2 signals: TemperatureChangeSignal(2, 41.25))",
            } +
            leaves));
    EXPECT_THAT(events(), ElementsAre(ready, debug_event("36.5"), output_event("36.5"),
                                      debug_event("41.25"), output_event("41.25"), done));
}

TEST_F(ReaderTest, IsWokenByAnActivatedServiceButDoesNotActivateIt) {
    open({.activation = true});
    camera({"stop", "temperature"});
    start_host();
    // Following a name starts nothing; a call of another client does.
    const tool::BusPtr other = tool::open_bus(address(), std::chrono::seconds(5));
    ASSERT_GE(
        sd_bus_call_method(other.get(), controller_name, "/com/tarlo/TemperatureController",
                           controller_name, "GetTemperature", nullptr, nullptr, "is", 3, "main"),
        0);
    wait_for_output("36.5");
    close();

    EXPECT_THAT(traffic(), ElementsAreArray(follows_the_owner + no_owner + owner_comes +
                                            matches_the_signal + registers + fetches + leaves));
}

TEST_F(ReaderTest, RegistersAgainWhenTheNamePassesToAnotherOwnerWithoutAGap) {
    open();
    start_host();
    wait_for_output("36.5");
    // Any client may send this signal, and the reader takes it from any.
    const tool::BusPtr other = tool::open_bus(address(), std::chrono::seconds(5));
    ASSERT_GE(sd_bus_emit_signal(other.get(), "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                 "NameOwnerChanged", "sss", controller_name, ":1.1", ":1.99"),
              0);
    ASSERT_GE(sd_bus_flush(other.get()), 0);
    wait_for_camera("\"member\":\"RegisterForTemperatureChangeSignal\",\"arguments\":[3,0.5]");
    wait_for_camera("\"member\":\"RegisterForTemperatureChangeSignal\",\"arguments\":[3,0.5]");
    camera({"set", "temperature.main", "40"});
    wait_for_output("40.0");
    close();

    // Both registrations live in the same controller: the reader hears of the second one.
    const Lines lines = traffic();
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         R"(client calls service: GetTemperatureIdFromName("main"))"),
              2);
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         R"(client calls service: GetTemperature(3, "main"))"),
              1);
    EXPECT_THAT(events("output"), ElementsAre(output_event("36.5"), output_event("40.0")));
    EXPECT_THAT(events("log"), ElementsAre());
}

TEST_F(ReaderTest, PublishesAFakeValueOnceRegisteredAndNoReadings) {
    open({.reader_keys = "sensor_name = \"main\"\ndelta_chg = 0.5\n"
                         "fake.active = true\nfake.value = 12.25\n",
          .host_options = {"--for", "1.5"}});
    start_host();
    wait_for_output("12.25");
    camera({"set", "temperature.main", "70"});
    wait_for_camera("\"event\":\"signal\"");
    close();

    EXPECT_THAT(traffic(),
                ElementsAreArray(
                    follows_the_owner + owner_there + matches_the_signal + registers + fetches +
                    Lines{"service signals: TemperatureChangeSignal(1, 70.0)"} + leaves));
    EXPECT_THAT(events(), ElementsAre(ready, debug_event("12.25"), output_event("12.25"), done));
}

TEST_F(ReaderTest, PublishesNoFakeValueWhileTheServiceIsAbsent) {
    open({.controller_there = false,
          .reader_keys = "sensor_name = \"main\"\ndelta_chg = 0.5\nfake.active = true\n"});
    start_host();
    close();
    EXPECT_THAT(events(), ElementsAre(ready, done));
}

TEST_F(ReaderTest, PublishesANanEachTimeItComes) {
    open();
    start_host();
    wait_for_output("36.5");
    camera({"set", "temperature.main", "nan"});
    wait_for_output("\"nan\"");
    // Whoever comes or goes wakes the reader, and NaN differs from the value before it, NaN.
    static_cast<void>(tool::open_bus(address(), std::chrono::seconds(5)));
    wait_for_output("\"nan\"");
    close();
    const Lines outputs = events("output");
    EXPECT_EQ(outputs.front(), output_event("36.5"));
    EXPECT_THAT(Lines(outputs.begin() + 1, outputs.end()), Each(output_event("\"nan\"")));
    EXPECT_EQ(events("debug").size(), outputs.size());
}

TEST_F(ReaderTest, DoesNotPublishAFirstReadingOfZero) {
    open();
    camera({"set", "temperature.main", "0"});
    start_host();
    wait_for_camera("\"event\":\"reply\",");
    wait_for_camera("\"member\":\"GetTemperature\"");
    camera({"set", "temperature.main", "1.5"});
    wait_for_output("1.5");
    close();
    EXPECT_THAT(events(), ElementsAre(ready, debug_event("1.5"), output_event("1.5"), done));
}

TEST_F(ReaderTest, WarnsOnceOfAThresholdOfZeroAndPassesItOn) {
    open({.reader_keys = "sensor_name = \"main\"\ndelta_chg = 0.0\n"});
    start_host();
    wait_for_output("36.5");
    close();
    EXPECT_THAT(events(),
                ElementsAre(log_event(2, "Temperature reader disabled by delta_temperature = 0"),
                            ready, debug_event("36.5"), output_event("36.5"), done));
    const Lines lines = traffic();
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         "client calls service: RegisterForTemperatureChangeSignal(3, 0.0)"),
              1);
}

}  // namespace
}  // namespace test
