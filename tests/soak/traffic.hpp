#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <thread>

#include "common/bus/bus.hpp"
#include "tests/soak/incidents.hpp"

namespace soak {

/// Counts the messages on a bus, and adds to the incidents the calls of one client that fail, that
/// is, get an error or no reply in time, and those that overlap. When a service leaves the bus, the
/// calls that have failed there until then count no longer. Reads on a thread of its own.
class Traffic {
  public:
    /// @param caller unique name of the client.
    /// @param timeout after which the client takes a call for failed.
    Traffic(const std::string& address, std::string caller, std::chrono::milliseconds timeout,
            Incidents& incidents);

    [[nodiscard]] std::uint64_t messages() const noexcept { return messages_; }

  private:
    using Clock = std::chrono::steady_clock;

    struct Call {
        std::string service;
        std::string member;
        Clock::time_point sent;
        bool overdue = false;
    };

    void read(const std::stop_token& stop);
    void take(sd_bus_message& message);
    void take_call(sd_bus_message& call);
    void take_answer(sd_bus_message& answer, bool is_error);
    void take_owner_change(sd_bus_message& signal);
    void fail(const Call& call);
    void fail_overdue();

    common::BusPtr bus_;
    std::string caller_;
    std::chrono::milliseconds timeout_;
    Incidents& incidents_;
    std::map<std::uint64_t, Call> unanswered_;             ///< by their serial numbers
    std::map<std::string, Clock::time_point> answered_;    ///< last, by member
    std::map<std::string, std::set<std::string>> failed_;  ///< members, by service
    std::atomic<std::uint64_t> messages_ = 0;
    std::jthread thread_;  ///< last: it is stopped before what it uses goes
};

}  // namespace soak
