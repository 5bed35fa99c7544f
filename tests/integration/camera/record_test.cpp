// What a camera does, recorded from its bus and played again.
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/integration/camera/scenario_scene.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

/// All block types but the one that a timer of the host sets going.
const std::string whole_graph = FENWA_EXAMPLES "/graphs/camera.toml";

/// What happens to the camera while it is recorded.
const std::string busy_day = R"([[steps]]
expect = {call = "RegisterForTemperatureSignal", arguments = [3, 70.0, true], within = 20}
[[steps]]
expect = {state = "power.share.vipd0", is = 12.0, within = 20}
[[steps]]
after = 0.3
set = {"temperature.main" = 58.0}
[[steps]]
after = 0.3
set = {"temperature.main" = 73.0}
fail = {member = "GetTemperature", error = "com.example.Error.Busy", times = 1}
[[steps]]
after = 0.3
set = {"power.budget" = 5.0}
[[steps]]
after = 0.3
set = {"power.received" = 10.0}
[[steps]]
after = 0.3
stop = "controls"
[[steps]]
after = 0.3
start = "controls"
expect = {call = "AddFeatures", within = 20}
[[steps]]
after = 0.3
stop = "temperature"
[[steps]]
expect = {call = "RegisterForTemperatureSignal", arguments = [3, 70.0, true], within = 20}
set = {"temperature.main" = 75.0}
[[steps]]
after = 0.3
set = {"power.received" = 25.0}
[[steps]]
after = 0.3
set = {"temperature.main" = 36.5}
[[steps]]
after = 0.5
say = "The day is over."
[[steps]]
at = 600
)";

class Recording : public ScenarioScene {
  protected:
    [[nodiscard]] std::string file() const { return (folder().path() / "recorded.toml").string(); }
    [[nodiscard]] std::string text() const {
        std::ifstream stream(file());
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    /// Starts a recorder of the scene's bus, and waits until it listens.
    [[nodiscard]] std::unique_ptr<Process> record(const Lines& options = {}) const {
        auto recorder = start(Lines{"record", "--bus", address(), "-o", file()} + options);
        EXPECT_TRUE(recorder->wait_for_error_text("recording the bus at")) << recorder->err();
        return recorder;
    }

    /// A host of the whole graph.
    static Lines host() { return {FENWA_PROGRAM, "run", whole_graph, "--format", "json"}; }

    /// The values that blocks have published, in their order, without those of the host's timer.
    static Lines outputs(const std::string& out) {
        Lines values;
        std::istringstream stream(out);
        for (std::string line; std::getline(stream, line);) {
            const common::Json event = common::Json::parse(line);
            if (event["event"] == "output" && event["block"] != "tick")
                values.push_back(event["block"].get<std::string>() + '.' +
                                 event["port"].get<std::string>() + " = " + event["value"].dump());
        }
        return values;
    }

    /// Waits until a call with its answer is recorded.
    void wait_for_reply() const {
        const auto deadline = steady_clock::now() + seconds(20);
        while (replies() == 0 && steady_clock::now() < deadline)
            usleep(5000);
    }
    [[nodiscard]] int replies() const {
        const std::string all = text();
        int count = 0;
        for (std::size_t at = 0; (at = all.find("\nreply = ", at)) != std::string::npos; ++at)
            ++count;
        return count;
    }

    /// The recording can be played, whatever it holds.
    void expect_no_mistakes() const {
        EXPECT_EQ(
            run({"run", "--private-bus", "--scenario", file(), "--", "sh", "-c", "exit 3"}).code, 3)
            << text();
    }

    /// Plays the recording again to its end, which must be well, and nobody may have to wait.
    [[nodiscard]] Ended replay(const Lines& program) const {
        Ended ended =
            run(Lines{"run", "--private-bus", "--format", "json", "--scenario", file(), "--"} +
                program);
        EXPECT_EQ(ended.code, 0) << ended.err;
        EXPECT_EQ(ended.err, "");
        EXPECT_THAT(with("missing_call", lines(ended.out)), IsEmpty());
        return ended;
    }
};

TEST_F(Recording, OfAGraphGivesTheSameOutputsInTheSameOrder) {
    open({.run = scenario(busy_day), .own_bus = true});
    const auto recorder = record();
    Process host(Recording::host(), {{"DBUS_SYSTEM_BUS_ADDRESS", address()}});
    EXPECT_TRUE(camera().wait_for_text("The day is over.")) << camera().out();
    const Lines before = outputs(host.terminate().out);
    EXPECT_EQ(recorder->terminate().code, 0);
    close();
    ASSERT_GE(before.size(), 10U);
    EXPECT_THAT(before, Contains("guard.temperature_ok_out = false"));
    EXPECT_EQ(outputs(replay(Recording::host()).out), before) << text();
}

TEST_F(Recording, HasCallsAnswersSignalsAndServicesWithTheirTimes) {
    open();
    const auto recorder = record();
    BusClient client(address());
    client.listen();
    EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "main"), "(3)");
    EXPECT_THAT(client.call("GetTemperatureIdFromName", "s", "mian"), HasSubstr("UnknownSensor"));
    EXPECT_EQ(client.call("RegisterForTemperatureChangeSignal", "id", 3, 1.0), "(1)");
    fail({"GetTemperature", "--malformed", "--times", "1", "--delay", "300"});
    EXPECT_EQ(client.call("GetTemperature", "is", 3, "main"), "(\"malformed\")");
    handle({"set", "temperature.main", "40"});
    handle({"stop", "temperature"});
    handle({"start", "temperature"});
    client.wait_for(3);
    const Ended ended = recorder->terminate();
    EXPECT_EQ(ended.code, 0) << ended.err;
    const std::string times = Pattern("(after|within) = [0-9.e-]+")
                                  .replace(text().substr(text().find("down = ")), "$1 = T");
    EXPECT_EQ(times, R"(down = []
activatable = []

[[steps]]
say = "A recording from )" +
                         address() + R"("

[[steps]]
reply = {call = "temperature.GetTemperatureIdFromName", arguments = ["main"], values = [3], after = T}

[[steps]]
reply = {call = "temperature.GetTemperatureIdFromName", arguments = ["mian"], error = "com.tarlo.TemperatureController.Error.UnknownSensor", message = "Unknown sensor 'mian'.", after = T}

[[steps]]
reply = {call = "temperature.RegisterForTemperatureChangeSignal", arguments = [3, 1.0], values = [1], after = T}

[[steps]]
reply = {call = "temperature.GetTemperature", arguments = [3, "main"], types = "s", values = ["malformed"], after = T}

[[steps]]
after = T
signal = {member = "temperature.TemperatureChangeSignal", arguments = [1, 40.0]}

[[steps]]
after = T
stop = "temperature"

[[steps]]
after = T
start = "temperature"

[[steps]]
after = T
)");
    const Groups delayed = Pattern("malformed\"\\], after = ([0-9.]+)").find(text());
    ASSERT_FALSE(delayed.empty());
    EXPECT_GE(std::stod(delayed[1]), 0.29);
    EXPECT_LT(std::stod(delayed[1]), 5.0);
}

TEST_F(Recording, LeavesOutTheClientsFromBeforeIt) {
    open();
    BusClient resident(address());
    const auto recorder = record();
    EXPECT_EQ(resident.call("GetTemperatureIdFromName", "s", "main"), "(3)");
    BusClient late(address());
    EXPECT_EQ(late.call("GetTemperatureIdFromName", "s", "lens"), "(4)");
    (void)recorder->terminate();
    EXPECT_EQ(text().find("\"main\""), std::string::npos);
    EXPECT_THAT(text(), HasSubstr("\"lens\""));
}

TEST_F(Recording, KnowsWhatHasNoAnswer) {
    open();
    const auto recorder = record();
    BusClient client(address());
    fail({"GetTemperature", "--silent"});
    client.send("GetTemperature", "is", 3, "main");
    EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "main"), "(3)");
    handle({"stop", "temperature"});
    EXPECT_THAT(client.wait_for(1).back(), HasSubstr("NoReply"));
    EXPECT_THAT(client.call("GetTemperatureIdFromName", "s", "main"), HasSubstr("ServiceUnknown"));
    (void)recorder->terminate();
    const std::string whole = text();
    EXPECT_LT(whole.find("silent = true"), whole.find("stop = \"temperature\""));
    Lines replies;
    std::istringstream stream(whole);
    for (std::string line; std::getline(stream, line);)
        if (line.starts_with("reply"))
            replies.push_back(line);
    EXPECT_THAT(replies, SizeIs(2)) << "the daemon itself refuses a call of a service that is down";
}

TEST_F(Recording, IsWholeHoweverItEnds) {
    open();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
        const auto recorder = record();
        BusClient client(address());
        EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "main"), "(3)");
        wait_for_reply();
        recorder->send_signal(signal);
        const Ended ended = recorder->wait();
        EXPECT_EQ(signal == SIGKILL ? ended.signal : ended.code, signal == SIGKILL ? SIGKILL : 0);
        expect_no_mistakes();
    }
    const Ended timed = record({"--for", "0.2"})->wait();
    EXPECT_EQ(timed.code, 0);
    EXPECT_THAT(timed.err, EndsWith("has 0 steps\n"));
}

TEST_F(Recording, HasTheStepsForWhichThereIsRoom) {
    open();
    for (const rlim_t room : {0, 1, 20, 60}) {
        const auto recorder = record();
        BusClient early(address());
        EXPECT_EQ(early.call("GetTemperatureIdFromName", "s", "main"), "(3)");
        wait_for_reply();
        const rlim_t size = text().size() + room;
        const rlimit limit{size, size};
        ASSERT_EQ(prlimit(recorder->pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
        BusClient client(address());
        EXPECT_EQ(client.call("GetTemperatureIdFromName", "s", "main"), "(3)");
        const Ended full = recorder->wait();
        EXPECT_EQ(full.code, 69);
        EXPECT_THAT(full.err, EndsWith("recorded.toml': File too large\n"));
        EXPECT_EQ(replies(), 1) << text();
        expect_no_mistakes();
    }
}

TEST_F(Recording, EndsWithItsBus) {
    open({.own_bus = true});
    const auto recorder = record();
    close();
    const Ended lost = recorder->wait();
    EXPECT_EQ(lost.code, 69);
    EXPECT_THAT(lost.err, EndsWith("fenwa-camera: the connection to the bus was lost\n"));
    EXPECT_THAT(text(), HasSubstr("[[steps]]\nafter = "));
}

TEST_F(Recording, SaysWhatIsMissing) {
    open_bus({.bus_xml = "<policy context=\"mandatory\"><deny send_interface="
                         "\"org.freedesktop.DBus.Monitoring\"/></policy>"});
    const Ended refused = run({"record", "--bus", address(), "-o", file()});
    EXPECT_EQ(refused.code, 69);
    EXPECT_THAT(refused.err, AllOf(HasSubstr("does not let us listen: org.freedesktop.DBus.Error."
                                             "AccessDenied"),
                                   EndsWith("; on the bus of a machine only root may, as with "
                                            "sudo\n")));
    EXPECT_EQ(run({"record", "--bus", address()}).code, 2);
    open_bus({});
    EXPECT_EQ(run({"record", "--bus", address(), "-o", "/nowhere/f.toml"}).err,
              "fenwa-camera: cannot write '/nowhere/f.toml': No such file or directory\n");
}

}  // namespace
}  // namespace test
