#include "camera/service/outgoing_calls.hpp"

#include <cstring>
#include <nlohmann/json.hpp>

#include "camera/bus/message_json.hpp"
#include "common/bus/callback.hpp"

namespace camera {

std::weak_ptr<OutgoingCalls::Call> OutgoingCalls::add(const std::string& about,
                                                      sd_bus_message& message) {
    calls_.push_back(std::make_shared<Call>(Call{this, about, sd_bus_message_get_member(&message),
                                                 sd_bus_message_get_destination(&message)}));
    return calls_.back();
}

void OutgoingCalls::send(sd_bus& bus, const std::weak_ptr<Call>& handle, sd_bus_message& message) {
    const auto call = handle.lock();
    if (call == nullptr)
        return;
    const int r = sd_bus_call_async(&bus, call->slot.out(), &message,
                                    common::callback<&Call::on_answer>, call.get(), 0);
    if (r < 0) {
        common::BusError error;
        sd_bus_error_set_errno(&error, r);
        event_log_.call_failed(service_, call->member, call->receiver, error.error.name,
                               std::strerror(-r));
        remove(*call);
        return;
    }
    // Sending has sealed the message: it can be read like a received one.
    event_log_.call_out(service_, call->member, call->receiver, body_json(message));
}

void OutgoingCalls::forget(const std::weak_ptr<Call>& handle) {
    if (const auto call = handle.lock())
        remove(*call);
}

void OutgoingCalls::forget(const std::string& about) {
    std::erase_if(calls_, [&](const auto& call) { return call->about == about; });
}

void OutgoingCalls::take_answer(const Call& call, sd_bus_message& answer) noexcept {
    try {
        log_answer(call, answer);
    } catch (const std::exception&) {
        // An answer that cannot be read is not logged: the log has no event for it.
    }
    remove(call);
}

void OutgoingCalls::log_answer(const Call& call, sd_bus_message& answer) {
    if (const sd_bus_error* error = sd_bus_message_get_error(&answer))
        event_log_.call_failed(service_, call.member, call.receiver, error->name,
                               error->message == nullptr ? "" : error->message);
    else
        event_log_.call_answered(service_, call.member, call.receiver, body_json(answer));
}

void OutgoingCalls::remove(const Call& call) {
    calls_.remove_if([&](const auto& each) { return each.get() == &call; });
}

}  // namespace camera
