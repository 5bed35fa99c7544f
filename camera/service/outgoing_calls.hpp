#pragma once

#include <systemd/sd-bus.h>

#include <list>
#include <memory>
#include <string>

#include "camera/service/event_log.hpp"
#include "common/bus/bus.hpp"

namespace camera {

/// Calls that a service makes to clients, which need not be there: answers and errors are logged
/// and change nothing.
class OutgoingCalls {
  public:
    /// A call without an answer, sent or not yet sent.
    struct Call {
        void on_answer(sd_bus_message& answer) noexcept { owner->take_answer(*this, answer); }

        OutgoingCalls* owner;
        std::string about;
        std::string member;
        std::string receiver;
        common::SlotPtr slot{};  ///< null until the call is sent
    };

    /// `event_log` must outlive this object.
    OutgoingCalls(std::string service, EventLog& event_log)
        : service_(std::move(service)), event_log_(event_log) {}
    OutgoingCalls(const OutgoingCalls&) = delete;
    OutgoingCalls& operator=(const OutgoingCalls&) = delete;

    /// Adds a call that is not sent yet. The handle expires once the call is answered or forgotten.
    /// @param about the subject of the call.
    [[nodiscard]] std::weak_ptr<Call> add(const std::string& about, sd_bus_message& message);
    /// Sends the message of a call; does nothing where the call is forgotten.
    void send(sd_bus& bus, const std::weak_ptr<Call>& call, sd_bus_message& message);
    void forget(const std::weak_ptr<Call>& call);
    /// Forgets all calls about this.
    void forget(const std::string& about);
    void clear() noexcept { calls_.clear(); }

  private:
    void take_answer(const Call& call, sd_bus_message& answer) noexcept;
    void log_answer(const Call& call, sd_bus_message& answer);
    void remove(const Call& call);

    std::string service_;
    EventLog& event_log_;
    std::list<std::shared_ptr<Call>> calls_;
};

}  // namespace camera
