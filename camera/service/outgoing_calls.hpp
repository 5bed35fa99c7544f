#pragma once

#include <systemd/sd-bus.h>

#include <list>
#include <memory>
#include <string>

#include "camera/service/event_log.hpp"
#include "common/bus/bus.hpp"

namespace camera {

/// Calls that a service makes to others. Whoever is called need not be there: what comes of a
/// call is told and harms nothing.
class OutgoingCalls {
  public:
    /// A call that is to be sent or was sent, and is not answered.
    struct Call {
        void on_answer(sd_bus_message& answer) noexcept { owner->take_answer(*this, answer); }

        OutgoingCalls* owner;
        std::string about;
        std::string member;
        std::string receiver;
        common::SlotPtr slot{};  ///< null until it is sent
    };

    /// `event_log` must outlive this object.
    OutgoingCalls(std::string service, EventLog& event_log)
        : service_(std::move(service)), event_log_(event_log) {}
    OutgoingCalls(const OutgoingCalls&) = delete;
    OutgoingCalls& operator=(const OutgoingCalls&) = delete;

    /// Notes that this message is to be sent. The handle is empty once the call was answered or
    /// forgotten.
    [[nodiscard]] std::weak_ptr<Call> add(const std::string& about, sd_bus_message& message);
    /// Sends the message of a call; does nothing where the call was forgotten.
    void send(sd_bus& bus, const std::weak_ptr<Call>& call, sd_bus_message& message);
    void forget(const std::weak_ptr<Call>& call);
    /// Forgets all calls about this.
    void forget(const std::string& about);
    void clear() noexcept { calls_.clear(); }

  private:
    void take_answer(const Call& call, sd_bus_message& answer) noexcept;
    void tell(const Call& call, sd_bus_message& answer);
    void remove(const Call& call);

    std::string service_;
    EventLog& event_log_;
    std::list<std::shared_ptr<Call>> calls_;
};

}  // namespace camera
