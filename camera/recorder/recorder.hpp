#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>

#include "camera/camera/camera.hpp"
#include "common/text/json.hpp"

namespace camera {

/// Turns what a monitor of a bus sees into the steps of a scenario that answers and sends the same:
/// a step a message of a service, in their order, with the times between them.
///
/// A call whose service goes down, or that has no answer at the end, has none in the scenario
/// either. Signals from before the first call are left out: nobody has asked for them.
class Recorder {
  public:
    using Clock = std::chrono::steady_clock;

    /// The bus when the recording begins.
    struct Start {
        std::map<std::string, std::string> owners;  ///< unique names by bus names
        std::set<std::string> activatable;          ///< bus names
        std::set<std::string> others;               ///< unique names of clients to leave out
        Clock::time_point time;
    };

    /// @param catalogue has the services by name; outlives this object.
    /// @param write takes the text of one or more steps.
    Recorder(const Camera& catalogue, Start start, std::function<void(const std::string&)> write);

    /// The lines before the first step: which services are down, and which a call brings up.
    [[nodiscard]] std::string head() const;
    /// Takes a message as it crossed the bus.
    void take(sd_bus_message& message, Clock::time_point now);
    /// Adds the calls without an answer, and the time since the last step.
    void finish(Clock::time_point now);

    [[nodiscard]] std::size_t steps() const noexcept { return steps_; }

  private:
    /// A call without an answer so far.
    struct Call {
        std::string client;  ///< unique name
        std::uint64_t serial;
        const Service* service;
        std::string member;
        common::Json fields;  ///< "call", "arguments", perhaps "path"
        Clock::time_point time;
    };

    void take_call(sd_bus_message& message, Clock::time_point now);
    void take_outgoing_call(sd_bus_message& message, Clock::time_point now);
    void take_answer(sd_bus_message& message, Clock::time_point now);
    void take_signal(sd_bus_message& message, Clock::time_point now);
    void take_owner_change(sd_bus_message& message, Clock::time_point now);
    /// The service that the name stands for, a unique one included; null for none.
    [[nodiscard]] const Service* service_at(const std::string& name) const;
    /// The service of a connection that has such a member; null for none.
    [[nodiscard]] const Service* service_of(const std::string& unique_name,
                                            const std::string& member, MemberKind kind) const;
    void add_reply(const Call& call, common::Json answer, Clock::time_point now);
    /// Adds the calls for which `unanswered` holds as calls without an answer.
    void give_up(const std::function<bool(const Call&)>& unanswered, Clock::time_point now);
    /// Adds a step with the time since the previous one.
    void add_timed(std::string_view action, const common::Json& value, Clock::time_point now);
    void add_step(const std::string& text, Clock::time_point now);

    const Camera& catalogue_;
    Start start_;
    std::function<void(const std::string&)> write_;
    Clock::time_point previous_;  // the time of the last step
    std::deque<Call> calls_;
    bool called_ = false;
    std::size_t steps_ = 0;
};

}  // namespace camera
