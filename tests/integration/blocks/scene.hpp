#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "common/bus/private_bus.hpp"
#include "common/text/json.hpp"
#include "tests/support/bus_monitor.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temporary_folder.hpp"

namespace test {

using Lines = std::vector<std::string>;

/// One list behind the other.
Lines operator+(Lines a, const Lines& b);

/// A graph in the host, the simulated camera and a monitor of the traffic, all on a private bus.
class BlockScene : public ::testing::Test {
  protected:
    /// What the blocks of a scene have in common.
    struct Cast {
        std::string service_name;  ///< bus name of the service whose traffic is told
        std::string first_call;    ///< the first method that the host calls after it has connected
        std::string graph;         ///< the graph behind its line of plug-ins
    };

    /// What differs from test to test, before `open`.
    struct Setting {
        std::string bus_xml{};    ///< further limits and policy of the bus
        bool activation = false;  ///< a call brings a service up that is down
        bool camera_there = true;
        std::vector<std::string> without{};  ///< services that are down when the host starts
        std::string graph{};                 ///< in place of the cast's, where not empty
        std::vector<std::string> host_options{};
    };

    explicit BlockScene(Cast cast) : cast_(std::move(cast)) {}

    /// Starts the bus, the camera, the monitor.
    void open(Setting setting);
    void open() { open(Setting{}); }
    /// Starts the host with the graph and waits until it makes its first call.
    void start_host();
    /// The same for a host that will not come so far.
    void start_host_without_first_call();

    /// Gives the camera an order, such as {"set", "temperature.main", "40"}.
    void camera(std::vector<std::string> order) const;

    /// Has the host read this graph in place of its own.
    void reload(const std::string& graph);
    /// Runs `fenwa` with these words against the bus of the scene, such as {"set", "a", "b=1"}.
    void fenwa(std::vector<std::string> words) const;

    /// Waits until an output of this value was published, as it stands in the event line.
    void wait_for_output(const std::string& value);
    /// Waits until every block is started.
    void wait_until_ready();
    /// Waits for a log line that begins so.
    void wait_for_log(const std::string& message);
    /// Waits for the camera's next event line with this text.
    void wait_for_camera(const std::string& text);
    /// Waits until the camera has answered this many more calls of `member`.
    void wait_for_replies(const std::string& member, int count = 1);

    /// Waits until the host has served what it was sent before. What the camera has told may still
    /// be on its way.
    void settle() const;

    /// Stops the host with SIGTERM and records to its end.
    void close();
    /// The same without the traffic.
    void end_host();

    /// What crossed the bus, from the host's first message to its last, after `close`.
    [[nodiscard]] Lines traffic() const;
    /// The host's event lines, without their times, after `close`.
    [[nodiscard]] Lines events() const;
    /// Only those of one kind, such as "output".
    [[nodiscard]] Lines events(const std::string& kind) const;

    [[nodiscard]] const std::string& address() const { return bus_->address(); }
    [[nodiscard]] const Ended& ended() const { return ended_; }

  private:
    /// Writes the graph file. @returns its path.
    [[nodiscard]] std::string write_graph(const std::string& graph) const;
    void run_on_bus(const std::string& program, std::vector<std::string> words) const;

    Cast cast_;
    TemporaryFolder folder_;
    Setting setting_;
    std::unique_ptr<common::PrivateBus> bus_;
    std::unique_ptr<Process> camera_;
    std::unique_ptr<BusMonitor> monitor_;
    std::unique_ptr<Process> host_;
    std::string host_name_;
    Ended ended_;
};

// Pieces of traffic that every block's story has.

/// The host has connected to the bus.
inline const Lines host_connects{
    R"(client calls daemon: Hello())",
    R"(daemon replies to client: ("client"))",
    R"(daemon signals client: NameAcquired("client"))",
};
/// The rule of the match with which blocks follow the owners of names.
inline const std::string owner_rule =
    "type='signal',interface='org.freedesktop.DBus',member='NameOwnerChanged'";
/// The host installs, and takes back, a match with this rule.
Lines adds_match(const std::string& rule);
Lines removes_match(const std::string& rule);
/// The end of every story.
inline const Lines host_leaves{R"(daemon signals client: NameLost("client"))"};

// Event lines as the host writes them, times taken out.

inline const std::string ready_event = R"({"event":"ready"})";
inline const std::string exit_event = R"({"event":"exit","status":0})";
std::string output_event(const std::string& port, const std::string& type,
                         const std::string& value);
std::string log_event(int level, const std::string& message);

}  // namespace test
