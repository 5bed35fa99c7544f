#include "host/runtime/running_graph.hpp"

#include <gtest/gtest.h>

#include <iostream>

#include "common/bus/bus.hpp"
#include "framework/algo-tools/connection_tools.hpp"
#include "host/graph/graph.hpp"
#include "tests/support/temporary_folder.hpp"

namespace host {
namespace {

class NoEvents final : public EventWriter {
    void setup(const std::string&, const Fenwa::BlockConfiguration&) override {}
    void ready() override {}
    void output(const std::string&, const std::string&, const Fenwa::Datatype&,
                const PortValue&) override {}
    void debug(const std::string&, const Fenwa::DebugValue&) override {}
    void log(int, const std::string&) override {}
    [[nodiscard]] std::string dropped(std::size_t) const override { return {}; }
    void exit(int) override {}
};

/// A graph of probe blocks without a bus, whose values the test looks at.
class RunningGraphTest : public testing::Test {
  protected:
    void make(const std::string& text) {
        graph_ = read_graph(folder_.write("graph.toml", "plugins = [\"libprobe.so\"]\n" + text),
                            diagnostics_);
        ASSERT_TRUE(graph_);
        types_.load(*graph_, {FENWA_TEST_PLUGINS}, diagnostics_);
        running_.emplace(*graph_, types_, tools_, *loop_, events_, diagnostics_);
    }

    void start() {
        const bool started = running_->start([] { return false; });
        diagnostics_.print(std::cerr, false);
        ASSERT_TRUE(started);
    }

    /// Serves the loop until nothing is left to do.
    void serve() {
        while (sd_event_run(loop_.get(), 0) > 0) {
        }
    }

    [[nodiscard]] std::optional<PortValue> value(const std::string& block,
                                                 const std::string& port) const {
        return running_->find(block)->input_value(port);
    }

    static sd_event* new_loop() {
        sd_event* loop = nullptr;
        common::check(sd_event_new(&loop), "loop");
        return loop;
    }

    test::TemporaryFolder folder_;
    common::Diagnostics diagnostics_{"graph.toml"};
    common::EventPtr loop_{new_loop()};
    Fenwa::ConnectionTools no_bus_{nullptr};
    Fenwa::InitTools tools_{&no_bus_};
    NoEvents events_;
    BlockTypes types_{loop_.get()};
    std::optional<Graph> graph_;
    std::optional<RunningGraph> running_;
};

std::string terminated(const std::string& settings) {
    return "[blocks.t]\ntype = \"Terminated\"\nsettings = \"" + settings + "\"\n";
}

TEST_F(RunningGraphTest, TerminatedInputHoldsItsDefaultUntilAValueIsDelivered) {
    make(terminated("every type") +
         "[blocks.s]\ntype = \"Source\"\nruns = 1\n[[connections]]\nfrom = \"s.out\"\n"
         "to = \"t.level\"\n");
    start();
    EXPECT_EQ(value("t", "level"), PortValue(5.0));
    serve();
    EXPECT_EQ(value("t", "level"), PortValue(1.0));
    EXPECT_EQ(value("t", "limit"), PortValue(-3));
    EXPECT_EQ(value("t", "ok"), PortValue(true));
}

TEST_F(RunningGraphTest, TerminatedInputHoldsWhatWasDeliveredLast) {
    make(terminated("every type") +
         "[blocks.s]\ntype = \"Source\"\nin_constructor = 1\nruns = 2\n[[connections]]\n"
         "from = \"s.out\"\nto = \"t.level\"\n");
    start();
    EXPECT_EQ(value("t", "level"), PortValue(1.0));  // out of the constructor
    sd_event_run(loop_.get(), 0);
    EXPECT_EQ(value("t", "level"), PortValue(2.0));
    serve();
    EXPECT_EQ(value("t", "level"), PortValue(3.0));
}

TEST_F(RunningGraphTest, TerminatedInputsOfSeveralTypesHoldTheirOwnValues) {
    make(terminated("every type") +
         "[blocks.v]\ntype = \"Values\"\n"
         "[[connections]]\nfrom = \"v.int\"\nto = \"t.limit\"\n"
         "[[connections]]\nfrom = \"v.float\"\nto = \"t.ratio\"\n"
         "[[connections]]\nfrom = \"v.tick\"\nto = \"t.tick\"\n");
    start();
    EXPECT_EQ(value("t", "limit"), PortValue(-7));
    EXPECT_EQ(value("t", "ratio"), PortValue(36.6F));
    EXPECT_EQ(value("t", "tick"), PortValue(Fenwa::datatype_timersource{
                                      9'007'199'254'740'993U, std::chrono::milliseconds(250)}));
    EXPECT_EQ(value("t", "level"), PortValue(5.0));
}

TEST_F(RunningGraphTest, InputsOfTheBlocksAreReadToo) {
    make(
        "[blocks.sink]\ntype = \"Sink\"\n[blocks.s]\ntype = \"Source\"\nin_start = 2\n"
        "[[connections]]\nfrom = \"s.out\"\nto = \"sink.double\"\n");
    start();
    EXPECT_EQ(value("sink", "double"), PortValue(2.0));
    EXPECT_EQ(value("sink", "int"), PortValue(0));
    EXPECT_EQ(value("sink", "bool"), PortValue(false));
    EXPECT_EQ(value("sink", "point"), PortValue());
}

TEST_F(RunningGraphTest, ThereAreNoValuesOfInputsThatAreNotThere) {
    make(terminated("monitor"));
    start();
    EXPECT_EQ(value("t", "temp_monitor_in"), PortValue(true));
    EXPECT_EQ(value("t", "temp"), std::nullopt);
    EXPECT_EQ(running_->find("u"), nullptr);
}

}  // namespace
}  // namespace host
