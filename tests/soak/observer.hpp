#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "common/text/json.hpp"
#include "tests/soak/incidents.hpp"
#include "tests/support/process.hpp"

namespace soak {

/// Reads the event lines of host and camera on two threads, so that neither is ever held up by a
/// full pipe. Both programs outlive it.
class Observer {
  public:
    Observer(test::Process& host, test::Process& camera, Incidents& incidents);
    /// Ends the threads.
    ~Observer() { stop(); }
    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;
    /// Ends the threads: the lines from here on stay with the programs.
    void stop();

    /// Waits until every block of the host is started. @returns false when that does not come.
    [[nodiscard]] bool wait_until_ready(std::chrono::seconds limit);

    /// The value in the last line of an output, "BLOCK.PORT"; null before the first.
    [[nodiscard]] common::Json last_value(const std::string& output) const;
    /// How many lines an output has had.
    [[nodiscard]] std::uint64_t lines_of(const std::string& output) const;
    /// How often the host has read its graph again so far.
    [[nodiscard]] std::uint64_t reloads() const;
    /// Waits until it has done so this often. @returns false when it has not within `limit`.
    [[nodiscard]] bool wait_for_reloads(std::uint64_t count, std::chrono::seconds limit);

    /// Messages, calls and replies that a fault rule was applied to.
    [[nodiscard]] std::uint64_t faults() const;
    /// How often a service has left the bus.
    [[nodiscard]] std::uint64_t service_ends() const;
    /// The last messages of the host.
    [[nodiscard]] std::string last_messages() const;

  private:
    void read_host(const std::stop_token& stop, test::Process& host);
    void read_camera(const std::stop_token& stop, test::Process& camera);
    void take_message(const std::string& line);
    void take_host_event(const common::Json& event);
    void take_camera_event(const common::Json& event);

    struct Output {
        common::Json value;
        std::uint64_t lines = 0;
    };

    Incidents& incidents_;
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::map<std::string, Output> outputs_;
    std::deque<std::string> messages_;  ///< the last ones
    std::uint64_t reloads_ = 0;
    std::uint64_t faults_ = 0;
    std::uint64_t service_ends_ = 0;
    bool ready_ = false;
    std::jthread host_reader_;
    std::jthread camera_reader_;
};

}  // namespace soak
