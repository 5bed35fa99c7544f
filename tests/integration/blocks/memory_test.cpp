// Each allocation may be the one that gets no memory.
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <nlohmann/json.hpp>
#include <random>
#include <sstream>
#include <thread>

#include "common/bus/control_client.hpp"
#include "common/bus/host_control.hpp"
#include "tests/integration/camera/camera_scene.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

const std::string graph = FENWA_EXAMPLES "/graphs/camera.toml";

using Environment = std::map<std::string, std::string>;

class EachAllocation : public CameraScene {
  protected:
    /// Leads a program to its end in an environment. Where it ends well, `out` is what has to be
    /// the same in each life.
    using Lead = std::function<Ended(const Environment&)>;

    /// Leads a program to its end, again and again, and lets one allocation of each fail: all of
    /// them with FENWA_EVERY_ALLOCATION, otherwise a sample of about so many.
    void expect_line_or_success(unsigned long sample, const Lead& lead) {
        const auto [sound, allocations] = lead_through(lead, {});
        ASSERT_EQ(sound.code, 0) << sound.err;
        ASSERT_GT(allocations, 1000U);
        const unsigned long step =
            std::getenv("FENWA_EVERY_ALLOCATION") != nullptr ? 1 : allocations / sample;
        const int seed = GTEST_FLAG_GET(random_seed);
        const unsigned long first =
            1 + (seed != 0 ? static_cast<unsigned>(seed) : std::random_device()()) % step;
        unsigned long faults = 0;
        unsigned long survived = 0;
        for (unsigned long number = first; number <= allocations; number += step) {
            const std::string text = std::to_string(number);
            const auto [ended, counted] = lead_through(lead, {{"FENWA_FAILING_ALLOCATION", text}});
            SCOPED_TRACE("allocation " + text + ", exit code " + std::to_string(ended.code) + "\n" +
                         ended.err);
            if (ended.code == 0 && counted < number)
                continue;  // no two lives have exactly as many
            ++faults;
            if (ended.code == 0) {
                ++survived;
                EXPECT_EQ(ended.out, sound.out);
            } else {
                EXPECT_EQ(ended.code, 70);
                EXPECT_FALSE(documented.match(ended.err).empty());
            }
        }
        std::cout << faults << " of " << allocations << " allocations failed, from " << first
                  << " on; " << survived << " times the host went on\n";
    }

    /// Runs `fenwa` to its end.
    static Ended run_fenwa(const Lines& arguments, const Environment& environment) {
        return run_program(Lines{FENWA_PROGRAM} + arguments, environment);
    }

  private:
    /// The host's own end, beside which its writers may still write a line; that of a child that
    /// tries blocks out; or a block that threw.
    const Pattern documented{
        "(?:.*\n)*fenwa: there is no memory left\n(?:.*\n)*"
        "|(?:.*\n)*.*ended the process in .* with exit code (?:1|70).*\n(?:.*\n)*.*: [0-9]+ "
        "errors?\n"
        "|(?:.*\n)*.*threw in .*: std::bad_alloc.*\n(?:.*\n)*"};

    /// How the program ends, and after how many allocations; 0 unless it ends well.
    std::pair<Ended, unsigned long> lead_through(const Lead& lead, Environment environment) {
        const std::string file = (folder().path() / "count").string();
        std::filesystem::remove(file);
        environment["LD_PRELOAD"] = FENWA_FAILING_ALLOCATION_LIBRARY;
        environment["FENWA_ALLOCATIONS"] = file;
        Ended ended = lead(environment);
        unsigned long allocations = 0;
        std::ifstream(file) >> allocations;
        return {std::move(ended), allocations};
    }
};

TEST_F(EachAllocation, ThatFailsEndsACheckWithALine) {
    expect_line_or_success(100, [](const Environment& environment) {
        Ended ended = run_fenwa({"check", graph}, environment);
        ended.out += ended.err;
        return ended;
    });
}

TEST_F(EachAllocation, ThatFailsEndsARunWithALine) {
    open_bus({});
    expect_line_or_success(100, [this](const Environment& environment) {
        // Without log lines: the stream in which a block puts one together swallows the exception.
        Ended ended = run_fenwa({"run", graph, "--bus", address(), "--for", "0.05", "--format",
                                 "json", "--events", "output,setup,debug"},
                                environment);
        static const Pattern time(R"("time":[-+.e0-9]+)");
        ended.out = time.replace(ended.out, R"("time":0)");
        return ended;
    });
}

/// A host with all block types beside a camera, with commands, reloads and a crash of a service.
class EachAllocationOfALife : public EachAllocation {
  protected:
    void SetUp() override {
        open({.activation = true});
        std::stringstream file;
        file << std::ifstream(graph).rdbuf();
        first_ = replaced(file.str(), "interval = 1000", "interval = 20");
        // A block has gone, one is new, one is built anew, one gets other settings.
        next_ = replaced(first_, "[blocks.greeting]", "[blocks.farewell]");
        next_ = replaced(next_, "high_off_temp = 70.0", "high_off_temp = 60.5");
        next_ = replaced(next_, "delta_chg = 0.5", "delta_chg = 0.5\nfake.value = 1.5");
    }

    /// Leads the host through its life. @returns its end; `out` is what the host says of its blocks
    /// before, if it comes so far.
    Ended lead_life(const Environment& environment) {
        set("temperature.main", "36.5");
        write_graph(first_);
        Process host({FENWA_PROGRAM, "run", (folder().path() / "graph.toml").string(), "--bus",
                      address(), "--control", "--format", "json"},
                     environment);
        if (!host.wait_for_text("\"ready\""))
            return host.wait();
        std::string last;
        try {
            last = lead_on(host);
        } catch (const common::Failure& failure) {
            if (failure.code() != common::ExitCode::unavailable)
                throw;
            return host.wait();
        }
        Ended ended = host.terminate();
        ended.out = last;
        return ended;
    }

  private:
    using Client = common::ControlClient;

    /// @returns the blocks with their settings, connections and values at last.
    std::string lead_on(Process& host) {
        const Client client({.bus = address(),
                             .name = common::host_control_name,
                             .path = common::host_control_path,
                             .interface = common::host_control_interface,
                             .noun = "the host",
                             .absent = "the host has gone",
                             .errors = {{common::host_error_prefix, common::ExitCode::usage}}});
        wait_for_values(client, 36.5, true);
        static_cast<void>(client.call("Subscribe", ""));
        set("temperature.main", "73");
        wait_for_values(client, 73.0, false);
        call_twice_at_most(client, "Reconfigure", "sa{sv}", "reader", 2U, "fake.active", "b", 1,
                           "fake.value", "d", 20.5);
        wait_for_values(client, 20.5, false);
        call_twice_at_most(client, "Reconfigure", "sa{sv}", "reader", 1U, "fake.active", "b", 0);
        reload(client, host);
        call_twice_at_most(client, "Rebuild", "sa{sv}", "buttons", 0U);
        call_twice_at_most(client, "Write", "sv", "video.rotation_vip0_in", "i", 90);
        set("temperature.main", "74");
        wait_for_values(client, 74.0, false);
        handle({"restart", "temperature"});
        set("temperature.main", "40");
        wait_for_values(client, 40.0, true);
        common::Json last = state_of(client);
        for (common::Json& block : last.at("blocks")) {
            block.erase("status");
            // Nobody knows how many ticks there were.
            if (block.at("name") == "tick")
                block.erase("outputs");
            if (block.at("name") == "power")
                block.erase("inputs");
            // Its first value, which was another one where the first reading had no memory.
            if (block.at("name") == "supply")
                block.erase("terminated_inputs");
        }
        return last.dump(1);
    }

    /// Has the host read its graph again. One that had no memory for it leaves all as it was, and
    /// does it the next time.
    void reload(const Client& client, Process& host) {
        const common::Json before = plan_of(client);
        write_graph(next_);
        for (int tries = 0; tries < 2; ++tries) {
            host.send_signal(SIGHUP);
            const auto line = host.wait_for_error_text("reloaded");
            if (!line)
                throw common::Failure(common::ExitCode::unavailable, "the host has gone");
            if (line->find("not reloaded") == std::string::npos)
                return;
            EXPECT_EQ(plan_of(client), before);
        }
        ADD_FAILURE() << "the host does not reload:\n" << host.err();
    }

    /// The same for a call.
    template <class... Arguments>
    static void call_twice_at_most(const Client& client, Arguments... arguments) {
        const common::Json before = plan_of(client);
        try {
            static_cast<void>(client.call(arguments...));
        } catch (const common::Failure& failure) {
            if (failure.code() == common::ExitCode::unavailable)
                throw;
            EXPECT_EQ(plan_of(client), before) << failure.what();
            static_cast<void>(client.call(arguments...));
        }
    }

    void wait_for_values(const Client& client, double temperature, bool is_ok) const {
        const auto deadline = steady_clock::now() + Process::wait_limit;
        common::Json state;
        while (steady_clock::now() < deadline) {
            state = state_of(client);
            if (output(state, "reader") == temperature && output(state, "guard") == is_ok &&
                output(state, "power") == 12.0)
                return;
            std::this_thread::sleep_for(milliseconds(5));
        }
        ADD_FAILURE() << "not " << temperature << " and " << is_ok << ":\n" << state.dump(1);
    }

    static common::Json state_of(const Client& client) {
        return client.read_json("Describe", [](const common::Json& state) { return state; });
    }
    /// The blocks with their settings, and the connections.
    static common::Json plan_of(const Client& client) {
        common::Json plan = state_of(client);
        for (common::Json& block : plan.at("blocks"))
            block = {block.at("name"), block.at("type"), block.at("settings")};
        return plan;
    }
    /// The first output of a block.
    static common::Json output(const common::Json& state, const std::string& name) {
        for (const common::Json& block : state.at("blocks")) {
            if (block.at("name") == name)
                return block.at("outputs").at(0).at("value");
        }
        return {};
    }

    void set(const char* value, const char* number) const { handle({"set", value, number}); }
    void write_graph(const std::string& text) const {
        static_cast<void>(folder().write("graph.toml", text));
    }
    static std::string replaced(std::string text, const std::string& part, const std::string& by) {
        const std::size_t at = text.find(part);
        EXPECT_NE(at, std::string::npos) << part;
        return text.replace(at, part.size(), by);
    }

    std::string first_;
    std::string next_;
};

TEST_F(EachAllocationOfALife, ThatFailsEndsItWithALineOrChangesNothing) {
    expect_line_or_success(
        100, [this](const Environment& environment) { return lead_life(environment); });
}

}  // namespace
}  // namespace test
