#include "tests/integration/blocks/reader_scene.hpp"

namespace test {
namespace {

// The pieces that the traffic of a reader is made of.

const std::string change_rule =
    "type='signal',sender='com.tarlo.TemperatureController',path='/com/tarlo/"
    "TemperatureController',"
    "interface='com.tarlo.TemperatureController',member='TemperatureChangeSignal'";
const Lines follows_the_owner =
    host_connects + adds_match(owner_rule) +
    Lines{R"(client calls daemon: GetNameOwner("com.tarlo.TemperatureController"))"};
const Lines owner_there{R"(daemon replies to client: ("service"))"};
const Lines no_owner = has_no_owner("com.tarlo.TemperatureController");
const std::string looks_up = R"(client calls service: GetTemperatureIdFromName("main"))";
const std::string fetches = R"(client calls service: GetTemperature(3, "main"))";
const std::string register_call =
    "client calls service: RegisterForTemperatureChangeSignal(3, 0.5)";

Lines registers(int number = 1, const std::string& service = "service") {
    return {looks_up, service + " replies to client: (3)", register_call,
            service + " replies to client: (" + std::to_string(number) + ")"};
}
/// It registers for the first time, and fetches the reading.
const Lines begins =
    adds_match(change_rule) + registers() + Lines{fetches, "service replies to client: (36.5)"};
const Lines leaves = removes_match(owner_rule) + removes_match(change_rule) + host_leaves;

using ReaderTest = ReaderScene;

TEST_F(ReaderTest, PublishesTheReadingsOfAServiceThatIsThereBefore) {
    start_reading();
    set_temperature("40");
    wait_for_output("40.0");
    close();
    EXPECT_THAT(traffic(),
                are(follows_the_owner + owner_there + begins +
                    Lines{"service signals: TemperatureChangeSignal(1, 40.0)"} + leaves));
    EXPECT_THAT(events(), are(reads({"36.5", "40.0"})));
    expect_ended_well();
}

TEST_F(ReaderTest, WaitsForAServiceThatAppearsLater) {
    start({.without = {"temperature"}});
    handle({"start", "temperature"});
    wait_for_output("36.5");
    close();
    EXPECT_THAT(traffic(), are(follows_the_owner + no_owner + Lines{owner_change("", "service")} +
                               begins + leaves));
    EXPECT_THAT(events(), are(reads({"36.5"})));
}

TEST_F(ReaderTest, RegistersAgainWithARestartedServiceAndDoesNotFetchAgain) {
    start_reading();
    restart_service();
    wait_for_camera("\"member\":\"RegisterForTemperatureChangeSignal\"", 2);
    set_temperature("41.25");
    wait_for_output("41.25");
    close();
    EXPECT_THAT(traffic(),
                are(follows_the_owner + owner_there + begins +
                    Lines{owner_change("service", ""), owner_change("", "service 2")} +
                    registers(2, "service 2") +
                    Lines{"service 2 signals: TemperatureChangeSignal(2, 41.25)"} + leaves));
    EXPECT_THAT(events(), are(reads({"36.5", "41.25"})));
}

TEST_F(ReaderTest, IsWokenByAnActivatedServiceButDoesNotActivateIt) {
    open({.activation = true});
    handle({"stop", "temperature"});
    start_host();
    // Following a name starts nothing; a call of another client does.
    ASSERT_GE(call("com.tarlo.TemperatureController", "GetTemperature", "is", 3, "main"), 0);
    wait_for_output("36.5");
    close();
    EXPECT_THAT(traffic(), are(follows_the_owner + no_owner + Lines{owner_change("", "service")} +
                               begins + leaves));
}

TEST_F(ReaderTest, RegistersAgainWhenTheNamePassesToAnotherOwnerWithoutAGap) {
    start_reading();
    // Any client may send this signal, and the reader takes it from any.
    emit_owner_change("sss", "com.tarlo.TemperatureController", ":1.1", ":1.99");
    wait_for_camera("\"member\":\"RegisterForTemperatureChangeSignal\",\"arguments\":[3,0.5]", 2);
    set_temperature("40");
    wait_for_output("40.0");
    close();
    // Both registrations live in the same controller: the reader hears of the second one.
    EXPECT_EQ(count(looks_up), 2);
    EXPECT_EQ(count(fetches), 1);
    EXPECT_THAT(events("output"), are(reading_events({"36.5", "40.0"})));
    EXPECT_THAT(events("log"), ElementsAre());
}

TEST_F(ReaderTest, PublishesAFakeValueOnceRegisteredAndNoReadings) {
    start({.graph = reader_with("delta_chg = 0.5\nfake.active = true\nfake.value = 12.25\n"),
           .host_options = {"--for", "1.5"}});
    wait_for_output("12.25");
    set_temperature("70");
    wait_for_camera("\"event\":\"signal\"");
    close();
    EXPECT_THAT(traffic(),
                are(follows_the_owner + owner_there + begins +
                    Lines{"service signals: TemperatureChangeSignal(1, 70.0)"} + leaves));
    EXPECT_THAT(events(), are(reads({"12.25"})));
}

TEST_F(ReaderTest, PublishesNoFakeValueWhileTheServiceIsAbsent) {
    start({.without = {"temperature"},
           .graph = reader_with("delta_chg = 0.5\nfake.active = true\n")});
    close();
    EXPECT_THAT(events(), are(reads({})));
}

TEST_F(ReaderTest, PublishesANanEachTimeItComes) {
    start_reading();
    set_temperature("nan");
    wait_for_output("\"nan\"");
    // Each client that comes or goes wakes the reader, and NaN differs from NaN.
    static_cast<void>(common::open_bus(address(), std::chrono::seconds(5)));
    wait_for_output("\"nan\"");
    close();
    const Lines outputs = events("output");
    EXPECT_EQ(outputs.front(), reading_event("36.5"));
    EXPECT_THAT(Lines(outputs.begin() + 1, outputs.end()), Each(reading_event("\"nan\"")));
    EXPECT_THAT(events("debug"), SizeIs(outputs.size()));
}

TEST_F(ReaderTest, DoesNotPublishAFirstReadingOfZero) {
    open();
    set_temperature("0");
    start_host();
    wait_for_camera("\"event\":\"reply\",");
    wait_for_camera("\"member\":\"GetTemperature\"");
    set_temperature("1.5");
    wait_for_output("1.5");
    close();
    EXPECT_THAT(events(), are(reads({"1.5"})));
}

TEST_F(ReaderTest, WarnsOnceOfAThresholdOfZeroAndPassesItOn) {
    start_reading({.graph = reader_with("delta_chg = 0.0\n")});
    close();
    EXPECT_THAT(events(),
                are(Lines{log_event(2, "Temperature reader disabled by delta_temperature = 0")} +
                    reads({"36.5"})));
    EXPECT_EQ(count("client calls service: RegisterForTemperatureChangeSignal(3, 0.0)"), 1);
}

/// A reader that is switched to a fake temperature and back while readings come.
class ReaderSettings : public ReaderScene {
  protected:
    /// @param fake switches the reader to this fake temperature; empty switches it back.
    template <class Switch>
    void switch_while_readings_come(Switch&& fake) {
        start_reading({.host_options = {"--control"}});
        reading("40");
        wait_for_output("40.0");
        fake("48.5");
        wait_for_output("48.5");
        reading("42");
        fake("52");
        wait_for_output("52.0");
        reading("44");
        fake("");
        wait_for_output("44.0");
        reading("46");
        wait_for_output("46.0");
        close();
        // Readings that come in between are kept, and only the newest one comes back.
        EXPECT_THAT(events("output"),
                    are(reading_events({"36.5", "40.0", "48.5", "52.0", "44.0", "46.0"})));
        EXPECT_EQ(ended().code, 0);
    }

  private:
    /// The sensor gets this temperature, and the reader has been told.
    void reading(const std::string& value) {
        set_temperature(value);
        wait_for_camera(R"("event":"signal")");
        settle();
    }
};

TEST_F(ReaderSettings, ChangeWithTheGraphFile) {
    switch_while_readings_come([this](const std::string& value) {
        reload(
            reader_with("delta_chg = 0.5\n" +
                        (value.empty() ? "" : "fake = { active = true, value = " + value + " }")));
    });
}

TEST_F(ReaderSettings, ChangeOverTheBus) {
    switch_while_readings_come([this](const std::string& value) {
        if (value.empty())
            fenwa({"set", "reader", "fake.active=false"});
        else
            fenwa({"set", "reader", "fake.active=true", "fake.value=" + value});
    });
}

}  // namespace
}  // namespace test
