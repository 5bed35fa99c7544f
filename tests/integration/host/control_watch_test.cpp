#include <csignal>
#include <limits>
#include <regex>

#include "tests/integration/host/control_client.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

class ControlWatch : public HostTest {
  protected:
    Words host_command(const std::string& lines) const {
        return run_command(probes(lines), {"--bus", bus(), "--control"});
    }
    static Words watch_command(const Words& more = {}) {
        Words words{FENWA_PROGRAM, "watch", "--bus", bus()};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
};

const std::string relay = "[blocks.r]\ntype = \"Relay\"\n";
const std::string timer = "[blocks.m]\ntype = \"Timer\"\ninterval = 20\n";

TEST_F(ControlWatch, PrintsEachValueInOrderAsTheRunDoes) {
    Process host(host_command(relay));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    const ControlClient client(bus());
    EXPECT_EQ(client.write("r.double", "d", 1.0), "ok");  // before anybody watches
    ASSERT_TRUE(host.wait_for_text("\"output\""));
    Process watch(watch_command({"--format", "json"}));
    ASSERT_TRUE(watch.wait_for_text("\"ready\""));
    for (int i = 2; i < 50; ++i)
        EXPECT_EQ(client.write("r.int", "i", i), "ok");
    EXPECT_EQ(client.write("r.float", "d", 36.6), "ok");
    EXPECT_EQ(client.write("r.bool", "b", 1), "ok");
    EXPECT_EQ(client.write("r.double", "d", -std::numeric_limits<double>::infinity()), "ok");
    ASSERT_TRUE(watch.wait_for_text("-inf"));
    const Ended watched = watch.terminate();
    std::string expected = "{\"event\":\"ready\",\"time\":0}\n";
    const auto line = [](const std::string& name, const std::string& value) {
        return R"({"event":"output","time":0,"block":"r","port":")" + name + "_out\",\"type\":\"" +
               name + "\",\"value\":" + value + "}\n";
    };
    for (int i = 2; i < 50; ++i)
        expected += line("int", std::to_string(i));
    expected += line("float", "36.599998474121094") + line("bool", "true") +
                line("double", "\"-inf\"") + "{\"event\":\"exit\",\"time\":0,\"status\":0}\n";
    EXPECT_EQ(without_times(watched.out), expected);
    EXPECT_EQ(watched.err, "");
    EXPECT_EQ(watched.code, 0);
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ControlWatch, PrintsTextWithoutTheTicksOfTimers) {
    Process host(host_command(relay + timer));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    Process watch(watch_command());
    ASSERT_TRUE(watch.wait_for_error_text("fenwa: ready"));
    ASSERT_TRUE(host.wait_for_text("\"timersource\""));
    const ControlClient client(bus());
    EXPECT_EQ(client.write("r.double", "d", 36.5), "ok");
    EXPECT_EQ(client.write("r.bool", "b", 1), "ok");
    ASSERT_TRUE(watch.wait_for_text("bool_out"));
    watch.send_signal(SIGINT);
    const Ended watched = watch.wait();
    EXPECT_EQ(watched.code, 0);
    static const std::regex time("(^|\n) *[0-9]+\\.[0-9]{3}  ");
    EXPECT_EQ(std::regex_replace(watched.out, time, "$1TIME  "),
              "TIME  r.double_out = 36.5\nTIME  r.bool_out = true\n");
    EXPECT_EQ(watched.err, "fenwa: ready\nfenwa: stopped\n");
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ControlWatch, OutputThatNoSignalCarriesIsReportedOnce) {
    Process host(host_command("[blocks.o]\ntype = \"OddlyNamed\"\n"));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    const ControlClient client(bus());
    EXPECT_EQ(client.write("o.in", "d", 1.0), "ok");
    EXPECT_EQ(client.write("o.in", "d", 2.0), "ok");
    ASSERT_TRUE(host.wait_for_error_text("OutputChanged"));
    const Ended ended = host.terminate();
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err,
              "fenwa: cannot emit OutputChanged for 'o.odd\\xff'; watchers miss values: Invalid "
              "argument\n");
}

TEST_F(ControlWatch, PrintsTicksAsJson) {
    Process host(host_command(timer));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    Process watch(watch_command({"--format", "json"}));
    const auto line = watch.wait_for_text("\"output\"");
    ASSERT_TRUE(line);
    static const std::regex form(
        R"(\{"event":"output","time":0,"block":"m","port":"out","type":"timersource",)"
        R"("value":\{"ticks":[0-9]+,"period_ms":20\}\})");
    EXPECT_TRUE(std::regex_match(without_times(*line), form)) << *line;
    EXPECT_EQ(watch.terminate().code, 0);
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(ControlWatch, EndsWithItsHost) {
    Process host(host_command(relay));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    Process watch(watch_command({"--format", "json"}));
    ASSERT_TRUE(watch.wait_for_text("\"ready\""));
    EXPECT_EQ(host.terminate().code, 0);
    const Ended watched = watch.wait();
    EXPECT_EQ(watched.code, 69);
    EXPECT_EQ(without_times(watched.out),
              "{\"event\":\"ready\",\"time\":0}\n"
              "{\"event\":\"exit\",\"time\":0,\"status\":69}\n");
    EXPECT_EQ(watched.err, "fenwa: the host that owned 'com.tarlo.Fenwa.Host1' has left the bus\n");
}

}  // namespace
}  // namespace test
