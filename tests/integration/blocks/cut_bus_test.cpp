// The bus goes away at each message in the lives of the blocks: after it, or in the middle of it.
#include <algorithm>
#include <csignal>
#include <iostream>
#include <memory>
#include <thread>

#include "tests/integration/camera/camera_scene.hpp"
#include "tests/support/cutting_relay.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

constexpr std::chrono::seconds end_limit{5};

/// The life of a block: a graph with it, and what its service does meanwhile.
struct Life {
    std::string name;
    std::string graph;  ///< CHANNEL stands for a number that no other host has
    /// Commands for the camera, or {"write", PORT, VALUE} for each host. The last value is the
    /// first one again.
    std::vector<Lines> traffic{};
};
std::ostream& operator<<(std::ostream& out, const Life& life) {
    return out << life.name;
}

/// The end of a host whose bus was cut.
struct Outcome {
    std::size_t units = 0;       ///< of traffic
    bool was_cut_early = false;  ///< before the host was asked to stop
    Ended ended;
};

class CutBus : public CameraScene, public ::testing::WithParamInterface<Life> {
  protected:
    /// A host on a bus that will be cut.
    class CutHost {
      public:
        CutHost(const CutBus& scene, CuttingRelay::Cut cut, std::size_t number)
            : name_("com.example.Host" + std::to_string(number)),
              relay_(scene.address(), scene.folder().path() / std::to_string(number), cut),
              host_({FENWA_PROGRAM, "run", scene.write_graph(number), "--bus", relay_.address(),
                     "--format", "json", "--control=" + name_},
                    scene.environment()) {}

        void wait_until_ready() { host_.wait_for_text("\"ready\""); }
        [[nodiscard]] bool is_cut() const { return relay_.has_cut(); }
        [[nodiscard]] std::size_t units() const { return relay_.units(); }
        [[nodiscard]] const std::string& name() const { return name_; }

        Outcome end() {
            const bool was_cut_early = is_cut();
            if (!was_cut_early)
                host_.send_signal(SIGTERM);
            Ended ended = host_.wait(end_limit);
            return {relay_.units(), was_cut_early, std::move(ended)};
        }

      private:
        std::string name_;
        CuttingRelay relay_;
        Process host_;
    };
    using Hosts = std::vector<std::unique_ptr<CutHost>>;

    void SetUp() override { open(); }

    [[nodiscard]] std::string write_graph(std::size_t number) const {
        std::string text = "plugins = [\"libfenwa-temperature.so\"]\n" + GetParam().graph;
        const std::string channel = "CHANNEL";
        for (std::size_t at = 0; (at = text.find(channel)) != std::string::npos;)
            text.replace(at, channel.size(), std::to_string(number));
        return folder().write(std::to_string(number) + ".toml", text);
    }

    /// Waits until no host hears anything more. One may wait for a timer, which nobody sees; a cut
    /// there is one more cut at its message.
    static void wait_for_silence(const Hosts& hosts) {
        const auto units = [&hosts] {
            std::size_t sum = 0;
            for (const auto& host : hosts)
                sum += host->units();
            return sum;
        };
        const auto deadline = steady_clock::now() + Process::wait_limit;
        std::size_t seen = 0;
        do {
            seen = units();
            std::this_thread::sleep_for(milliseconds(40));
        } while (units() != seen && steady_clock::now() < deadline);
        EXPECT_EQ(units(), seen) << "a host does not fall silent";
    }

    void do_next(const Lines& action, const Hosts& hosts) const {
        if (action.front() != "write")
            return handle(action);
        for (const auto& host : hosts) {
            if (!host->is_cut())
                (void)run_program(Lines{FENWA_PROGRAM} + action +
                                      Lines{"--bus", address(), "--control", host->name()},
                                  environment());
        }
    }

    /// Leads hosts through their lives, each with a cut of its own: they start, serve, live through
    /// the restart of their service and stop.
    [[nodiscard]] std::vector<Outcome> live(const std::vector<CuttingRelay::Cut>& cuts) const {
        Hosts hosts;
        for (const CuttingRelay::Cut& cut : cuts)
            hosts.push_back(std::make_unique<CutHost>(*this, cut, hosts.size()));
        for (const auto& host : hosts)
            host->wait_until_ready();
        wait_for_silence(hosts);
        for (const Lines& action : GetParam().traffic) {
            do_next(action, hosts);
            wait_for_silence(hosts);
        }
        std::vector<Outcome> outcomes;
        for (const auto& host : hosts)
            outcomes.push_back(host->end());
        return outcomes;
    }

    static void expect_documented_end(const Outcome& outcome) {
        const Ended& ended = outcome.ended;
        // The reason of its end comes last.
        static const Pattern lost(
            "(?:.*\n)*fenwa: (lost the connection to the bus at|cannot reach the bus at|cannot own "
            "the bus name) '[^']*'(?!: another connection owns it).*\n");
        static const Pattern unread(
            "(fenwa: block 'b' .*( waits for .*, which nobody owns|has an owner now|"
            " was refused by .*)\n)*"
            "(fenwa: the bus at '.*' has not read all that was sent to it\n)?");
        EXPECT_EQ(ended.signal, 0);
        if (outcome.was_cut_early || ended.code != 0) {
            EXPECT_EQ(ended.code, 69);
            EXPECT_FALSE(lost.match(ended.err).empty()) << ended.err;
        } else {
            EXPECT_FALSE(unread.match(ended.err).empty()) << ended.err;
        }
        EXPECT_THAT(ended.out, EndsWith("\"status\":" + std::to_string(ended.code) + "}\n"));
    }
};

TEST_P(CutBus, EndsTheHostWithADocumentedSentenceAtEachMessage) {
    constexpr std::size_t at_once = 12;
    std::vector<Outcome> whole = live(std::vector<CuttingRelay::Cut>(at_once));
    for (const Outcome& each : whole) {
        ASSERT_EQ(each.ended.code, 0) << each.ended.err;
        EXPECT_FALSE(each.was_cut_early);
    }
    // A block that tries again and again has more of it in one life than in another.
    std::ranges::sort(whole, {}, &Outcome::units);
    const std::size_t units = whole[whole.size() / 2].units;
    std::size_t lost = 0;
    for (std::size_t first = 1; first <= 2 * units; first += at_once) {
        std::vector<CuttingRelay::Cut> cuts;
        for (std::size_t i = first; i < first + at_once && i <= 2 * units; ++i)
            cuts.push_back({(i + 1) / 2, i % 2 == 0});
        const std::vector<Outcome> outcomes = live(cuts);
        for (std::size_t i = 0; i < cuts.size(); ++i) {
            SCOPED_TRACE("cut " + std::string(cuts[i].is_inside ? "inside" : "after") + " unit " +
                         std::to_string(cuts[i].unit) + " of " + std::to_string(units));
            expect_documented_end(outcomes[i]);
            lost += outcomes[i].ended.code == 69 ? 1U : 0U;
        }
    }
    std::cout << GetParam().name << ": " << units << " units of traffic, " << 2 * units
              << " cuts, the bus lost in " << lost << '\n';
    // Cuts at the very end come too late.
    EXPECT_GT(lost, units);
    close();
    expect_nothing_left();
}

/// A line of a graph.
std::string block(const std::string& settings) {
    return "blocks.b = {" + settings + "}\n";
}

INSTANTIATE_TEST_SUITE_P(
    Of, CutBus,
    ::testing::Values(
        Life{"TemperatureReader",
             block(R"(type = "TemperatureReader", sensor_name = "main", delta_chg = 0.5)"),
             {{"set", "temperature.main", "50"},
              {"restart", "temperature"},
              {"set", "temperature.main", "36.5"}}},
        Life{"TemperatureMonitor",
             block(R"(type = "TemperatureMonitor", sensor_name = "main", high_off_temp = 70, )"
                   R"(high_on_temp = 60)"),
             {{"set", "temperature.main", "75"},
              {"restart", "temperature"},
              {"set", "temperature.main", "36.5"}}},
        Life{"PowerConsumer",
             "bus.names = [\"com.tarlo.Vipd.chCHANNEL\"]\n" +
                 block(R"(type = "PowerConsumer", channel = CHANNEL, power = 12.0)") +
                 "blocks.t = {type = \"Timer\", interval = 1}\n"
                 "connections = [{from = \"t.out\", to = \"b.timer_in\"}]\n",
             {{"set", "power.budget", "9"},
              {"restart", "power-consumer"},
              {"set", "power.budget", "20"}}},
        Life{"PowerMonitor",
             block(R"(type = "PowerMonitor", requested_power = 15.0)"),
             {{"set", "power.received", "3"},
              {"restart", "power-status"},
              {"set", "power.received", "25"}}},
        Life{"OnScreenControls",
             block(R"(type = "OnScreenControls", channel = 0, wdr = true)"),
             {{"restart", "controls"}}},
        Life{"PrioritizedTextOverlaySetter",
             block(R"(type = "PrioritizedTextOverlaySetter", prio_text_overlay = "a", )"
                   R"(duration = 8)"),
             {{"restart", "overlay"}}},
        Life{"VideoReady",
             block(R"(type = "VideoReady", channel = 0)"),
             {{"write", "b.rotation_vip0_in", "90"}, {"restart", "video"}}}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace test
