#pragma once

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "camera/bus/timers.hpp"
#include "camera/scenario/scenario.hpp"
#include "camera/service/connection.hpp"
#include "camera/service/event_log.hpp"
#include "common/text/json.hpp"

namespace camera {

/// A value that a host has had, with the time of the event log.
struct SeenValue {
    double time = 0.0;
    common::SharedJson value;  ///< not null
};

/// A host on the camera's bus as its control interface shows it. The host may come and go.
/// Everything runs on the loop.
class HostWatch {
  public:
    /// Connects. @param name bus name of the host.
    /// @param ports outputs of which all values are kept.
    /// @param event_log outlives this object.
    /// @param changed called when there is something new to see.
    /// @throws common::Failure (unavailable) when the bus cannot be reached.
    HostWatch(sd_event& event, const std::string& address, std::string name,
              std::set<std::string> ports, const EventLog& event_log, std::function<void()> changed,
              std::function<void()> lost);
    HostWatch(const HostWatch&) = delete;
    HostWatch& operator=(const HostWatch&) = delete;

    /// Asks for a value now, and follows it until `leave`: outputs through their signal, logs and
    /// status 50 times a second, so that of log lines that come together only the last is seen.
    /// @param value outlives that.
    /// @param since log lines from before this time do not count.
    void follow(const ExpectedValue& value, double since);
    void leave();

    /// The last value of what is followed; null until there is one.
    [[nodiscard]] const common::SharedJson& latest() const noexcept { return latest_; }
    /// Why the host can have no such value, empty where it can.
    [[nodiscard]] const std::string& refusal() const noexcept { return refusal_; }
    /// Whether the host has answered since `follow`.
    [[nodiscard]] bool answered() const noexcept { return answered_; }
    [[nodiscard]] const std::string& name() const noexcept { return name_; }

    /// The values of what is followed that were seen since `forget`, 10000 at most.
    [[nodiscard]] std::vector<SeenValue> seen() const;
    void forget() { seen_.clear(); }

  private:
    struct Seen {
        std::string subject;
        SeenValue value;
    };

    /// Asks the host to signal new values, if it is there.
    void subscribe();
    void ask();
    [[nodiscard]] common::MessagePtr new_call(const char* method) const;
    void call(const char* method, const char* argument, sd_bus_message_handler_t handler);
    void on_output_changed(sd_bus_message& signal);
    void on_owner_changed(sd_bus_message& signal);
    void on_value(sd_bus_message& reply);
    void on_description(sd_bus_message& reply);
    /// Whether the reply is one; an error of the host becomes the refusal.
    [[nodiscard]] bool is_answer(sd_bus_message& reply);
    void see_status(const common::Json& blocks);
    void see_log(const common::Json& log);
    void see(const std::string& subject, const common::Json& value, double time);
    void refuse(const std::string& sentence);

    std::string name_;
    std::set<std::string> ports_;
    const EventLog& event_log_;
    std::function<void()> changed_;
    Connection connection_;
    std::vector<common::SlotPtr> matches_;
    common::SlotPtr call_;
    Timers timers_;
    const ExpectedValue* followed_ = nullptr;
    double since_ = 0.0;
    common::SharedJson latest_;
    std::string refusal_;
    bool answered_ = false;
    std::deque<Seen> seen_;
    std::map<std::string, SeenValue> lines_;  // the last log line of each block
};

}  // namespace camera
