#include <gmock/gmock.h>

#include "tests/integration/blocks/reader_scene.hpp"

namespace test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

// The pieces that the traffic of a reader is made of.

const std::string change_rule =
    "type='signal',sender='com.tarlo.TemperatureController',path='/com/tarlo/"
    "TemperatureController',"
    "interface='com.tarlo.TemperatureController',member='TemperatureChangeSignal'";
const Lines follows_the_owner =
    host_connects + adds_match(owner_rule) +
    Lines{R"(client calls daemon: GetNameOwner("com.tarlo.TemperatureController"))"};
const Lines owner_there{R"(daemon replies to client: ("service"))"};
const Lines no_owner{
    R"(daemon refuses client: org.freedesktop.DBus.Error.NameHasNoOwner("Could not get owner of name 'com.tarlo.TemperatureController': no such name"))",
};
const Lines owner_comes{
    R"(daemon signals: NameOwnerChanged("com.tarlo.TemperatureController", "", "service"))",
};
const Lines matches_the_signal = adds_match(change_rule);
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
const Lines leaves = removes_match(owner_rule) + removes_match(change_rule) + host_leaves;

using ReaderTest = ReaderScene;

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
    EXPECT_THAT(events(), ElementsAre(ready_event, debug_event("36.5"), reading_event("36.5"),
                                      debug_event("40.0"), reading_event("40.0"), exit_event));
    EXPECT_EQ(ended().code, 0);
    EXPECT_EQ(ended().err, "");
}

TEST_F(ReaderTest, WaitsForAServiceThatAppearsLater) {
    open({.without = {"temperature"}});
    start_host();
    camera({"start", "temperature"});
    wait_for_output("36.5");
    close();

    EXPECT_THAT(traffic(), ElementsAreArray(follows_the_owner + no_owner + owner_comes +
                                            matches_the_signal + registers + fetches + leaves));
    EXPECT_THAT(events(),
                ElementsAre(ready_event, debug_event("36.5"), reading_event("36.5"), exit_event));
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
    EXPECT_THAT(events(), ElementsAre(ready_event, debug_event("36.5"), reading_event("36.5"),
                                      debug_event("41.25"), reading_event("41.25"), exit_event));
}

TEST_F(ReaderTest, IsWokenByAnActivatedServiceButDoesNotActivateIt) {
    open({.activation = true});
    camera({"stop", "temperature"});
    start_host();
    // Following a name starts nothing; a call of another client does.
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(5));
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
    const common::BusPtr other = common::open_bus(address(), std::chrono::seconds(5));
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
    EXPECT_THAT(events("output"), ElementsAre(reading_event("36.5"), reading_event("40.0")));
    EXPECT_THAT(events("log"), ElementsAre());
}

TEST_F(ReaderTest, PublishesAFakeValueOnceRegisteredAndNoReadings) {
    open({.graph = reader_with("sensor_name = \"main\"\ndelta_chg = 0.5\n"
                               "fake.active = true\nfake.value = 12.25\n"),
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
    EXPECT_THAT(events(),
                ElementsAre(ready_event, debug_event("12.25"), reading_event("12.25"), exit_event));
}

TEST_F(ReaderTest, PublishesNoFakeValueWhileTheServiceIsAbsent) {
    open({.without = {"temperature"},
          .graph = reader_with("sensor_name = \"main\"\ndelta_chg = 0.5\nfake.active = true\n")});
    start_host();
    close();
    EXPECT_THAT(events(), ElementsAre(ready_event, exit_event));
}

TEST_F(ReaderTest, PublishesANanEachTimeItComes) {
    open();
    start_host();
    wait_for_output("36.5");
    camera({"set", "temperature.main", "nan"});
    wait_for_output("\"nan\"");
    // Whoever comes or goes wakes the reader, and NaN differs from the value before it, NaN.
    static_cast<void>(common::open_bus(address(), std::chrono::seconds(5)));
    wait_for_output("\"nan\"");
    close();
    const Lines outputs = events("output");
    EXPECT_EQ(outputs.front(), reading_event("36.5"));
    EXPECT_THAT(Lines(outputs.begin() + 1, outputs.end()), Each(reading_event("\"nan\"")));
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
    EXPECT_THAT(events(),
                ElementsAre(ready_event, debug_event("1.5"), reading_event("1.5"), exit_event));
}

TEST_F(ReaderTest, WarnsOnceOfAThresholdOfZeroAndPassesItOn) {
    open({.graph = reader_with("sensor_name = \"main\"\ndelta_chg = 0.0\n")});
    start_host();
    wait_for_output("36.5");
    close();
    EXPECT_THAT(events(),
                ElementsAre(log_event(2, "Temperature reader disabled by delta_temperature = 0"),
                            ready_event, debug_event("36.5"), reading_event("36.5"), exit_event));
    const Lines lines = traffic();
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         "client calls service: RegisterForTemperatureChangeSignal(3, 0.0)"),
              1);
}

}  // namespace
}  // namespace test
