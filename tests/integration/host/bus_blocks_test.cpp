#include <chrono>

#include "tests/integration/host/bus_listener.hpp"
#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

using Clock = std::chrono::steady_clock;

class BusBlocks : public HostTest {
  protected:
    static std::string exporter(const std::string& name, const std::string& path,
                                const std::string& more = {}) {
        return "[blocks." + name + "]\ntype = \"Exporter\"\npath = \"" + path + "\"\n" + more;
    }
    static std::string caller(const std::string& keys) {
        return "[blocks.caller]\ntype = \"Caller\"\ndestination = \"com.example.Silent\"\n" + keys;
    }
};

TEST_F(BusBlocks, ObjectsAreReachedUnderTheNamesOfTheGraph) {
    Process host(run_command(
        probes("[bus]\nnames = [\"com.example.Blocks\"]\n" + exporter("one", "/com/example/One") +
               exporter("two", "/com/example/Two")),
        {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    BusListener client(bus());
    EXPECT_EQ(client.echo("com.example.Blocks", "/com/example/One", "a"), "one heard a");
    EXPECT_EQ(client.echo("com.example.Blocks", "/com/example/Two", "b"), "two heard b");
    EXPECT_EQ(client.echo("com.example.Blocks", "/com/example/Three", "c"),
              "org.freedesktop.DBus.Error.UnknownObject");
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(BusBlocks, SecondObjectAtTheSamePlaceIsSaidAndEndsNothing) {
    Process host(run_command(
        probes("[bus]\nnames = [\"com.example.Twice\"]\n" + exporter("one", "/com/example/Same") +
               exporter("two", "/com/example/Same")),
        {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    BusListener client(bus());
    EXPECT_EQ(client.echo("com.example.Twice", "/com/example/Same", "a"), "one heard a");
    const Ended ended = without_folder(host.terminate());
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err,
              "graph.toml:7:9: warning: the blocks 'one' and 'two' both export "
              "'com.example.Echo1' at '/com/example/Same'; only the first one is reached\n"
              "[blocks.two]\n        ^\ngraph.toml: 1 warning\n"
              "fenwa: the block 'two' cannot export 'com.example.Echo1' at '/com/example/Same': "
              "the block 'one' exports it already\n");
}

TEST_F(BusBlocks, ObjectsAreReachedInWhicheverPhaseTheyAreExported) {
    for (const std::string phase : {"setup", "start", "run"}) {
        Process host(run_command(
            probes("[bus]\nnames = [\"com.example.Late\"]\n" +
                   exporter("late", "/com/example/Late", "phase = \"" + phase + "\"\n")),
            {"--bus", bus()}));
        ASSERT_TRUE(host.wait_for_text(phase == "run" ? "late: ran" : "\"ready\""));
        BusListener client(bus());
        EXPECT_EQ(client.echo("com.example.Late", "/com/example/Late", "a"), "late heard a")
            << phase;
        const Ended ended = host.terminate();
        EXPECT_EQ(ended.code, 0);
        EXPECT_EQ(ended.err, "");
    }
}

TEST_F(BusBlocks, SecondObjectInALaterPhaseIsSaidAndEndsNothing) {
    const std::string warning =
        "graph.toml:5:9: warning: the blocks 'one' and 'two' both export 'com.example.Echo1' at "
        "'/com/example/Same'; only the first one is reached\n[blocks.two]\n        ^\n"
        "graph.toml: 1 warning\n";
    const std::string line =
        "fenwa: the block 'two' cannot export 'com.example.Echo1' at '/com/example/Same': the "
        "block 'one' exports it already\n";
    for (const std::string phase : {"setup", "start", "run"}) {
        const Ended ended =
            run(probes(exporter("one", "/com/example/Same") +
                       exporter("two", "/com/example/Same", "phase = \"" + phase + "\"\n")),
                {"--for", "0.1"});
        EXPECT_EQ(ended.code, 0);
        // A check sees what blocks do up to their setup.
        EXPECT_EQ(ended.err, (phase == "setup" ? warning : "") + line) << phase;
    }
}

TEST_F(BusBlocks, ObjectThatOneBlockExportsTwiceIsSaidAndEndsNothing) {
    const Ended ended =
        run(probes(exporter("one", "/com/example/Same", "times = 2\n")), {"--for", "0.05"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err,
              "graph.toml:2:9: warning: the block 'one' exports 'com.example.Echo1' at "
              "'/com/example/Same' twice; only the first one is reached\n"
              "[blocks.one]\n        ^\ngraph.toml: 1 warning\n"
              "fenwa: the block 'one' cannot export 'com.example.Echo1' at '/com/example/Same': "
              "the block 'one' exports it already\n");
}

TEST_F(BusBlocks, ObjectAtAnImpossiblePathIsSaidAndEndsNothing) {
    // Of both, because neither has it.
    const Ended ended =
        run(probes(exporter("one", "no/path") + exporter("two", "no/path")), {"--for", "0.05"});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err,
              "graph.toml:2:9: warning: the block 'one' cannot export 'com.example.Echo1' at "
              "'no/path': the path or the interface name is not valid\n[blocks.one]\n        ^\n"
              "graph.toml:5:9: warning: the block 'two' cannot export 'com.example.Echo1' at "
              "'no/path': the path or the interface name is not valid\n[blocks.two]\n        ^\n"
              "graph.toml: 2 warnings\n"
              "fenwa: the block 'one' cannot export 'com.example.Echo1' at 'no/path': "
              "Invalid argument\n"
              "fenwa: the block 'two' cannot export 'com.example.Echo1' at 'no/path': "
              "Invalid argument\n");
}

TEST_F(BusBlocks, BlockingCallEndsAfterTheCallTimeout) {
    BusListener silent(bus());
    silent.own("com.example.Silent");
    Process host(run_command(probes(caller("")), {"--bus", bus(), "--call-timeout", "0.4"}));
    ASSERT_TRUE(host.wait_for_text("caller: asks"));
    const auto begin = Clock::now();
    ASSERT_TRUE(host.wait_for_text("caller: got "));
    EXPECT_GE(Clock::now() - begin, std::chrono::milliseconds(300));
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3));
    EXPECT_EQ(messages(host.terminate().out),
              "caller: asks\ncaller: got org.freedesktop.DBus.Error.Timeout\n");
}

TEST_F(BusBlocks, WhatCameDuringABlockingCallIsServedAfterIt) {
    BusListener silent(bus());
    silent.own("com.example.Silent");
    Process host(run_command(probes("[bus]\nnames = [\"com.example.Busy\"]\n" + caller("") +
                                    exporter("echo", "/com/example/Echo")),
                             {"--bus", bus(), "--call-timeout", "0.5"}));
    ASSERT_TRUE(host.wait_for_text("caller: asks"));
    BusListener client(bus());
    client.send_echo("com.example.Busy", "/com/example/Echo", "meanwhile");
    // Nothing else comes that would wake the host.
    EXPECT_EQ(client.answer(), "echo heard meanwhile");
    EXPECT_EQ(host.terminate().code, 0);
}

TEST_F(BusBlocks, LostBusEndsTheRunAndStopsTheBlocks) {
    common::PrivateBus own;
    Process host(run_command(probes("[blocks.one]\ntype = \"Probe\"\n"), {"--bus", own.address()}));
    ASSERT_TRUE(host.wait_for_text("one: run"));
    const auto begin = Clock::now();
    own.stop();
    const Ended ended = host.wait();
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(3));
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err, "fenwa: lost the connection to the bus at '" + own.address() + "'\n");
    EXPECT_TRUE(messages(ended.out).ends_with("one: run\none: stop\none: destructor\n"));
    EXPECT_TRUE(
        without_times(ended.out).ends_with("{\"event\":\"exit\",\"time\":0,\"status\":69}\n"));
}

TEST_F(BusBlocks, BusThatIsLostDuringABlockingCallIsTheReasonOfTheEnd) {
    common::PrivateBus own;
    BusListener silent(own.address());
    silent.own("com.example.Silent");
    Process host(run_command(probes(caller("tells = false\n")), {"--bus", own.address()}));
    ASSERT_TRUE(host.wait_for_text("caller: asks"));
    own.stop();
    const Ended ended = without_folder(host.wait());
    EXPECT_EQ(ended.code, 69);
    EXPECT_TRUE(
        ended.err.starts_with("graph.toml:2:9: error: block 'caller' (Caller) threw in run: "))
        << ended.err;
    EXPECT_TRUE(
        ended.err.ends_with("\nfenwa: lost the connection to the bus at '" + own.address() + "'\n"))
        << ended.err;
}

TEST_F(BusBlocks, BusThatIsLostDuringTheStartEndsIt) {
    common::PrivateBus own;
    Process host(run_command(probes("[blocks.one]\ntype = \"Probe\"\nstart_ms = 500\n"),
                             {"--bus", own.address()}));
    ASSERT_TRUE(host.wait_for_text("one: setup"));
    own.stop();
    const Ended ended = host.wait();
    EXPECT_EQ(ended.code, 69);
    EXPECT_TRUE(messages(ended.out).ends_with("one: stop\none: destructor\n"));
}

TEST_F(BusBlocks, PublicationInACallbackIsDeliveredBeforeTheNextCallAndReportedOnce) {
    Process host(run_command(probes("[bus]\nnames = [\"com.example.Hasty\"]\n[blocks.hasty]\n"
                                    "type = \"Hasty\"\npath = \"/com/example/Hasty\"\n"),
                             {"--bus", bus()}));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    BusListener client(bus());
    for (const char* text : {"a", "run", "c", "run", "e"})
        client.echo("com.example.Hasty", "/com/example/Hasty", text);
    const Ended ended = host.terminate();
    const auto heard = [](const std::string& value) {
        return R"({"event":"output","time":0,"block":"hasty","port":"heard","type":"int","value":)" +
               value + "}\n";
    };
    EXPECT_EQ(without_times(lines_with(ended.out, "output")),
              heard("2") + heard("100") + heard("4") + heard("100") + heard("5"));
    EXPECT_EQ(ended.err,
              "fenwa: block 'hasty' (Hasty) published 'heard' outside of the framework's calls, "
              "such as in an sd-bus callback: the last value was delivered late, earlier ones are "
              "lost\n");
}

}  // namespace
}  // namespace test
