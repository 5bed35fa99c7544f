// The bus goes away at each message of the lives of the blocks: after it, or in the middle of it.
#include <csignal>
#include <future>
#include <iostream>
#include <thread>

#include "tests/integration/camera/camera_scene.hpp"
#include "tests/support/cutting_relay.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

constexpr std::chrono::seconds end_limit{5};

/// A graph with one block, or more.
struct Life {
    std::string name;
    std::string graph;
};
std::ostream& operator<<(std::ostream& out, const Life& life) {
    return out << life.name;
}

class CutBus : public CameraScene, public ::testing::WithParamInterface<Life> {
  protected:
    /// How a host ended whose bus was cut.
    struct Outcome {
        std::size_t units = 0;       ///< of traffic
        bool was_cut_early = false;  ///< before the host was asked to stop
        Ended ended;
    };

    void SetUp() override {
        open();
        graph_ = folder().write("graph.toml",
                                "plugins = [\"libfenwa-temperature.so\"]\n" + GetParam().graph);
    }

    /// Leads a host through its life: it starts, serves until the bus is silent, and stops.
    [[nodiscard]] Outcome live(CuttingRelay::Cut cut) const {
        const std::string number = std::to_string(cut.unit) + (cut.is_inside ? "i" : "a");
        CuttingRelay relay(address(), folder().path() / number, cut);
        Process host({FENWA_PROGRAM, "run", graph_, "--bus", relay.address(), "--format", "json",
                      "--control=com.example.Host" + number});
        host.wait_for_text("\"ready\"");
        // It may wait for a timer, which nobody sees; a cut there is one more cut at its message.
        std::size_t seen = 0;
        do {
            seen = relay.units();
            std::this_thread::sleep_for(milliseconds(40));
        } while (!relay.has_cut() && relay.units() != seen);
        Outcome outcome;
        outcome.was_cut_early = relay.has_cut();
        if (!outcome.was_cut_early)
            host.send_signal(SIGTERM);
        outcome.ended = host.wait(end_limit);
        outcome.units = relay.units();
        return outcome;
    }

    static void expect_documented_end(const Outcome& outcome) {
        const Ended& ended = outcome.ended;
        // What the host says of its end comes last.
        static const Pattern lost(
            "(?:.*\n)*fenwa: (lost the connection to the bus at|cannot reach the bus at|cannot own "
            "the bus name) '[^']*'.*\n");
        static const Pattern unread(
            "(fenwa: the bus at '.*' has not read all that was sent to "
            "it\n)?");
        EXPECT_EQ(ended.signal, 0);
        if (outcome.was_cut_early || ended.code != 0) {
            EXPECT_EQ(ended.code, 69);
            EXPECT_FALSE(lost.match(ended.err).empty()) << ended.err;
        } else {
            EXPECT_FALSE(unread.match(ended.err).empty()) << ended.err;
        }
        EXPECT_THAT(ended.out, EndsWith("\"status\":" + std::to_string(ended.code) + "}\n"));
    }

  private:
    std::string graph_;
};

TEST_P(CutBus, EndsTheHostWithADocumentedSentenceAtEachMessage) {
    const Outcome whole = live({});
    ASSERT_EQ(whole.ended.code, 0) << whole.ended.err;
    EXPECT_FALSE(whole.was_cut_early);
    std::size_t cuts = 0;
    std::size_t lost = 0;
    constexpr std::size_t at_once = 6;
    for (std::size_t first = 1; first <= 2 * whole.units; first += at_once) {
        std::vector<std::pair<CuttingRelay::Cut, std::future<Outcome>>> lives;
        for (std::size_t i = first; i < first + at_once && i <= 2 * whole.units; ++i) {
            const CuttingRelay::Cut cut{(i + 1) / 2, i % 2 == 0};
            lives.emplace_back(cut,
                               std::async(std::launch::async, [this, cut] { return live(cut); }));
        }
        for (auto& [cut, life] : lives) {
            SCOPED_TRACE("cut " + std::string(cut.is_inside ? "inside" : "after") + " unit " +
                         std::to_string(cut.unit) + " of " + std::to_string(whole.units));
            const Outcome outcome = life.get();
            expect_documented_end(outcome);
            ++cuts;
            lost += outcome.ended.code == 69 ? 1U : 0U;
        }
    }
    std::cout << GetParam().name << ": " << whole.units << " units of traffic, " << cuts
              << " cuts, the bus lost in " << lost << '\n';
    // Those at the very end come too late.
    EXPECT_GT(lost, cuts / 2);
}

/// A line of a graph.
std::string block(const std::string& settings) {
    return "blocks.b = {" + settings + "}\n";
}

INSTANTIATE_TEST_SUITE_P(
    Of, CutBus,
    ::testing::Values(
        Life{"TemperatureReader",
             block(R"(type = "TemperatureReader", sensor_name = "main", delta_chg = 0.5)")},
        Life{"TemperatureMonitor",
             block(R"(type = "TemperatureMonitor", sensor_name = "main", high_off_temp = 70, )"
                   R"(high_on_temp = 60)")},
        Life{"PowerConsumer", "bus.names = [\"com.tarlo.Vipd.ch0\"]\n" +
                                  block(R"(type = "PowerConsumer", channel = 0, power = 12.0)") +
                                  "blocks.t = {type = \"Timer\", interval = 1}\n"
                                  "connections = [{from = \"t.out\", to = \"b.timer_in\"}]\n"},
        Life{"PowerMonitor", block(R"(type = "PowerMonitor", requested_power = 15.0)")},
        Life{"OnScreenControls", block(R"(type = "OnScreenControls", channel = 0, wdr = true)")},
        Life{
            "PrioritizedTextOverlaySetter",
            block(
                R"(type = "PrioritizedTextOverlaySetter", prio_text_overlay = "a", duration = 8)")},
        Life{"VideoReady", block(R"(type = "VideoReady", channel = 0)")}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace test
