#include <chrono>

#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

/// Blocks that are called and call. Objects that cannot be exported are in tests/graphs/host.
class BusBlocks : public HostTest {
  protected:
    static std::string exporter(const std::string& name, const std::string& path,
                                const std::string& more = {}) {
        return block(name, "Exporter", "path = \"" + path + "\"" + more);
    }
    static std::string caller(const std::string& more = {}) {
        return block("caller", "Caller", "destination = \"com.example.Silent\"" + more);
    }
};

const std::string named = "bus.names = [\"com.example.Blocks\"]\n";

TEST_F(BusBlocks, ObjectsAreReachedUnderTheNamesOfTheGraph) {
    start(named + exporter("one", "/com/example/One") + exporter("two", "/com/example/Two"));
    BusListener client(bus());
    EXPECT_EQ(client.echo("com.example.Blocks", "/com/example/One", "a"), "one heard a");
    EXPECT_EQ(client.echo("com.example.Blocks", "/com/example/Two", "b"), "two heard b");
    EXPECT_EQ(client.echo("com.example.Blocks", "/com/example/Three", "c"),
              "org.freedesktop.DBus.Error.UnknownObject");
}

TEST_F(BusBlocks, FirstOfTwoObjectsAtTheSamePlaceIsReached) {
    start(named + exporter("one", "/a") + exporter("two", "/a"));
    EXPECT_EQ(BusListener(bus()).echo("com.example.Blocks", "/a", "a"), "one heard a");
}

TEST_F(BusBlocks, ObjectsAreReachedInWhicheverPhaseTheyAreExported) {
    for (const std::string phase : {"setup", "start", "run"}) {
        start(named + exporter("late", "/late", ", phase = \"" + phase + "\""), {},
              phase == "run" ? "late: ran" : "\"ready\"");
        EXPECT_EQ(BusListener(bus()).echo("com.example.Blocks", "/late", "a"), "late heard a");
        stop();
    }
}

TEST_F(BusBlocks, BlockingCallEndsAfterTheCallTimeout) {
    BusListener silent(bus());
    silent.own("com.example.Silent");
    start(caller(), {"--call-timeout", "0.4"}, "caller: asks");
    const auto begin = Clock::now();
    ASSERT_TRUE(host().wait_for_text("caller: got "));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(300));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3));
    const Ended ended = host().terminate();
    expect_end(ended, 0,
               "fenwa: block 'caller' (Caller): Ask was not answered by com.example.Silent: "
               "Timeout: Connection timed out\n");
    EXPECT_EQ(messages(ended.out),
              "caller: asks\ncaller: got org.freedesktop.DBus.Error.Timeout\n");
}

TEST_F(BusBlocks, WhatComesDuringABlockingCallIsServedAfterIt) {
    BusListener silent(bus());
    silent.own("com.example.Silent");
    start(named + caller() + exporter("echo", "/echo"), {"--call-timeout", "0.5"}, "caller: asks");
    BusListener client(bus());
    client.send_echo("com.example.Blocks", "/echo", "meanwhile");
    // Nothing else comes that would wake the host.
    EXPECT_EQ(client.answer(), "echo heard meanwhile");
}

/// A host on a bus of its own, which the test ends.
class LostBus : public BusBlocks {
  protected:
    /// Ends the bus once the host has come to `sign`. @returns how the host ends.
    Ended lose(const std::string& graph, const std::string& sign) {
        start(graph, {"--bus", own_.address()}, sign);
        const auto begin = Clock::now();
        own_.stop();
        const Ended ended = without_folder(host().wait());
        EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3));
        EXPECT_EQ(ended.code, 69);
        EXPECT_TRUE(without_times(ended.out).ends_with(exit_line(69))) << ended.out;
        return ended;
    }
    std::string lost() const {
        return "fenwa: lost the connection to the bus at '" + own_.address() + "'\n";
    }

    common::PrivateBus own_;
};

TEST_F(LostBus, EndsTheRunAndStopsTheBlocks) {
    const Ended ended = lose(block("one", "Probe") + block("two", "Probe"), "two: run");
    EXPECT_EQ(ended.err, lost());
    EXPECT_TRUE(messages(ended.out).ends_with(
        "two: run\ntwo: stop\none: stop\ntwo: destructor\none: destructor\n"));
}

TEST_F(LostBus, IsTheReasonOfTheEndWhenABlockThrowsOverIt) {
    BusListener silent(own_.address());
    silent.own("com.example.Silent");
    const Ended ended = lose(caller(", tells = false"), "caller: asks");
    EXPECT_TRUE(
        ended.err.starts_with("graph.toml:2:8: error: block 'caller' (Caller) threw in run: "))
        << ended.err;
    EXPECT_TRUE(ended.err.ends_with("\n" + lost())) << ended.err;
}

TEST_F(LostBus, EndsTheStart) {
    const Ended ended = lose(block("one", "Probe", "start_ms = 500"), "one: setup");
    EXPECT_TRUE(messages(ended.out).ends_with("one: stop\none: destructor\n"));
}

TEST_F(BusBlocks, PublicationInACallbackIsDeliveredBeforeTheNextCallAndReportedOnce) {
    start(named + block("hasty", "Hasty", "path = \"/hasty\""));
    BusListener client(bus());
    for (const char* text : {"a", "run", "c", "run", "e"})
        client.echo("com.example.Blocks", "/hasty", text);
    const Ended ended = host().terminate();
    std::string heard;
    for (const char* value : {"2", "100", "4", "100", "5"})
        heard += output_line("hasty", "heard", "int", value);
    EXPECT_EQ(without_times(lines_with(ended.out, "output")), heard);
    expect_end(ended, 0,
               "fenwa: block 'hasty' (Hasty) published 'heard' outside of the framework's calls, "
               "such as in an sd-bus callback: the last value was delivered late, earlier ones are "
               "lost\n");
}

}  // namespace
}  // namespace test
