#pragma once

#include <systemd/sd-event.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "camera/camera/camera.hpp"
#include "camera/scenario/host_watch.hpp"
#include "camera/scenario/scenario.hpp"
#include "camera/service/event_log.hpp"
#include "common/text/json.hpp"

namespace camera {

/// What clients and hosts have done since the previous step was done, and whether it meets an
/// expectation.
class Observations {
  public:
    /// Camera and event log outlive this object.
    Observations(const Camera& camera, const EventLog& event_log)
        : camera_(camera), event_log_(event_log) {}

    /// Connects to the hosts of a scenario, which outlives this object.
    /// @param changed called from the loop when an expectation may be met.
    /// @throws common::Failure (unavailable) when the bus cannot be reached.
    void open(const Scenario& scenario, sd_event& event, const std::function<void()>& changed,
              const std::function<void()>& lost);

    void add(const CallRecord& call);
    /// Looks for what is expected, until `leave`.
    void follow(const Expectation& expectation);
    void leave();
    /// Whether what is expected has come, be it absent or not. Uses up the call that it is.
    [[nodiscard]] bool has_come(const Expectation& expectation);
    /// Why it can never come, empty where it can.
    [[nodiscard]] std::string refusal(const Expectation& expectation) const;
    /// Whether the absence of what is expected can be told: a host that is not there shows nothing.
    [[nodiscard]] bool can_be_absent(const Expectation& expectation) const;

    /// What came instead, for a sentence.
    [[nodiscard]] std::string instead_text(const Expectation& expectation) const;
    /// The same for the event: {"calls": […]} or {"values": [{"time", "value"}, …]}.
    [[nodiscard]] common::Json instead(const Expectation& expectation) const;

    /// A step without an expectation is done: the calls before it no longer count.
    void forget_calls() { calls_.clear(); }
    /// Any step is done.
    void forget_values();

  private:
    [[nodiscard]] bool has_come(const ExpectedCall& expected);
    [[nodiscard]] bool has_come(const ExpectedValue& expected) const;
    [[nodiscard]] std::vector<SeenValue> seen(const ExpectedValue& expected) const;
    /// Null for a value of the camera.
    [[nodiscard]] HostWatch* host_of(const ExpectedValue& value) const;

    const Camera& camera_;
    const EventLog& event_log_;
    double since_ = 0.0;            // the event log's time when the previous step was done
    std::deque<CallRecord> calls_;  // those that no expectation has used up
    std::map<std::string, std::unique_ptr<HostWatch>> hosts_;
};

}  // namespace camera
