#include <gmock/gmock.h>

#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/host_test.hpp"
#include "tests/support/json_printing.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

using testing::HasSubstr;

/// Blocks that wait for services, and what the host says of them.
class Status : public HostTest {
  protected:
    /// No service of the camera is on the test's bus.
    const std::string reader_block =
        block("reader", "TemperatureReader", "sensor_name = \"main\", delta_chg = 0.5");
    const std::string reader = "plugins = [\"libfenwa-temperature.so\"]\n" + reader_block;
    const std::string waits =
        "fenwa: block 'reader' (TemperatureReader) waits for com.tarlo.TemperatureController, "
        "which nobody owns\n";

    static std::string caller(const std::string& destination) {
        return block("caller", "Caller", "destination = \"" + destination + "\"");
    }

    Ended status(const Words& more = {}) const {
        return fenwa(Words{"status", "--bus", bus()} + more);
    }
    /// The status, with N for each number.
    std::string status_text() const {
        const Ended ended = status();
        expect_end(ended);
        return Pattern("[0-9]+(\\.[0-9]+)?").replace(ended.out, "N");
    }
    common::Json status_of(const std::string& name) const {
        const Ended ended = status({"--format", "json"});
        expect_end(ended);
        const common::Json status = common::parse_json(ended.out, "the status");
        for (const common::Json& block : status.at("blocks")) {
            if (block.at("name") == name)
                return block;
        }
        return {};
    }

    /// Has the host come so far that its stderr is this. @returns whether it has, within 20 s.
    bool says(const std::string& text) { return host().wait_for_error_text(text).has_value(); }
};

TEST_F(Status, NamesTheServiceThatABlockWaitsForAndTheEndOfTheWait) {
    start(reader, {"--control"});
    ASSERT_TRUE(says("waits for"));
    EXPECT_EQ(status_text(),
              "reader (TemperatureReader): N runs, N a second, the last N s ago\n"
              "  waiting for com.tarlo.TemperatureController, which nobody owns\n");
    EXPECT_EQ(status_of("reader").at("waits_for"),
              common::Json::array({"com.tarlo.TemperatureController"}));
    BusClient service(bus());
    service.own("com.tarlo.TemperatureController");
    ASSERT_TRUE(says("has an owner now"));
    EXPECT_EQ(status_of("reader").at("waits_for"), common::Json::array());
    EXPECT_EQ(host().terminate().err,
              waits +
                  "fenwa: block 'reader' (TemperatureReader): com.tarlo.TemperatureController has "
                  "an owner now\n");
}

TEST_F(Status, NamesTheCallThatAServiceRefuses) {
    BusClient refuser(bus());
    refuser.own("com.example.Refuser");
    start(caller("com.example.Refuser"), {"--control"}, "caller: asks");
    // sd-bus refuses calls of objects that it does not have.
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    refuser.serve_until([end] { return std::chrono::steady_clock::now() > end; });
    ASSERT_TRUE(says("was refused"));
    EXPECT_EQ(host().err(),
              "fenwa: block 'caller' (Caller): Ask was refused by com.example.Refuser: "
              "UnknownObject: Unknown object '/com/example/Peer'.\n");
    const common::Json status = status_of("caller");
    const common::Json& call = status.at("last_call");
    EXPECT_EQ(call.at("service"), "com.example.Refuser");
    EXPECT_EQ(call.at("member"), "Ask");
    EXPECT_EQ(call.at("answered"), false);
    EXPECT_EQ(call.at("error"), "org.freedesktop.DBus.Error.UnknownObject");
    EXPECT_LT(call.at("age"), 20.0);
    EXPECT_EQ(status.at("last_log").at("message"),
              "caller: got org.freedesktop.DBus.Error.UnknownObject");
    EXPECT_THAT(status_text(), HasSubstr("  called Ask of com.example.Refuser N s ago: "
                                         "org.freedesktop.DBus.Error.UnknownObject: Unknown"));
    EXPECT_THAT(status_text(), HasSubstr("  logged N s ago: info: caller: got org.freedesktop"));
    EXPECT_EQ(host().terminate().code, 0);
}

TEST_F(Status, CountsRunsAndValues) {
    start(block("s", "Source", "runs = 3") + block("idle", "Relay"), {"--control"}, "\"value\":3");
    EXPECT_EQ(status_text(),
              "s (Source): N runs, N a second, the last N s ago; published N values\n"
              "  logged N s ago: info: s: run\n"
              "idle (Relay): not run yet\n");
    common::Json status = status_of("s");
    EXPECT_EQ(status.at("phase"), "running");
    EXPECT_EQ(status.at("runs"), 3);
    EXPECT_EQ(status.at("published"), 3);
    EXPECT_EQ(status.at("paced"), false);
    EXPECT_EQ(status.at("last_call"), nullptr);
    status = status_of("idle");
    EXPECT_EQ(status.at("phase"), "started");
    EXPECT_EQ(status.at("last_run"), nullptr);
    EXPECT_EQ(status.at("runs_per_second"), 0.0);
}

TEST_F(Status, IsShownInThePicture) {
    start(reader, {"--control"});
    ASSERT_TRUE(says("waits for"));
    const Ended drawn = fenwa({"graph", "--bus", bus(), "--control"});
    expect_end(drawn);
    EXPECT_THAT(drawn.out, HasSubstr(">waiting for com.tarlo.TemperatureController<"));
    EXPECT_EQ(host().terminate().err, waits);
}

TEST_F(Status, IsPrintedEachSecondAndEndsWithASignal) {
    start(block("s", "Source"), {"--control"});
    Process watching({FENWA_PROGRAM, "status", "--watch", "--format", "json", "--bus", bus()});
    ASSERT_TRUE(watching.wait_for_text("\"blocks\""));
    ASSERT_TRUE(watching.wait_for_text("\"blocks\""));
    watching.send_signal(SIGINT);
    EXPECT_EQ(watching.wait().code, 0);
    expect_end(status({"--watch"}), 2,
               "fenwa: --watch redraws at a terminal; use --format json for a stream of objects\n");
}

TEST_F(Status, BlockThatPublishesNothingIsNamedOnceWithWhatItWaitsFor) {
    const Ended ended =
        run("plugins = [\"libfenwa-temperature.so\", \"libprobe.so\"]\n" + reader_block +
                block("relay", "Relay") + block("button", "Source") +
                R"(connections = [{from = "reader.temperature_out", to = "relay.double"}])",
            {"--for", "6"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(
        lines_with(ended.err, "published"),
        "fenwa: block 'reader' (TemperatureReader) has published nothing in the first 5 s: it "
        "waits for com.tarlo.TemperatureController, which nobody owns\n"
        "fenwa: block 'relay' (Relay) has published nothing in the first 5 s: it waits for a "
        "value of 'reader.temperature_out'\n");
}

}  // namespace
}  // namespace test
