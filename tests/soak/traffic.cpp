#include "tests/soak/traffic.hpp"

#include <algorithm>

#include "tests/support/monitor_connection.hpp"

namespace soak {
namespace {

using common::check;

/// Within this time the client may not have read an answer yet.
constexpr std::chrono::milliseconds reading_time{200};

bool is(const char* text, const std::string& wanted) {
    return text != nullptr && text == wanted;
}

}  // namespace

Traffic::Traffic(const std::string& address, std::string caller, std::chrono::milliseconds timeout,
                 Incidents& incidents)
    : bus_(test::open_monitor(address)),
      caller_(std::move(caller)),
      // A reply that comes shortly before the end may come too late for the client.
      timeout_(timeout * 3 / 4),
      incidents_(incidents),
      thread_([this](const std::stop_token& stop) { read(stop); }) {}

void Traffic::read(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
        common::MessagePtr message;
        const int r = sd_bus_process(bus_.get(), message.out());
        if (r < 0)
            return;  // the bus has ended
        if (message) {
            ++messages_;
            take(*message);
        }
        fail_overdue();
        if (r == 0 && sd_bus_wait(bus_.get(), 50'000) < 0)
            return;
    }
}

void Traffic::take(sd_bus_message& message) {
    std::uint8_t type = 0;
    check(sd_bus_message_get_type(&message, &type), "type of a message");
    if (type == SD_BUS_MESSAGE_METHOD_CALL) {
        if (is(sd_bus_message_get_sender(&message), caller_) &&
            sd_bus_message_get_expect_reply(&message) > 0)
            take_call(message);
    } else if (type == SD_BUS_MESSAGE_SIGNAL) {
        if (is(sd_bus_message_get_member(&message), "NameOwnerChanged"))
            take_owner_change(message);
    } else if (is(sd_bus_message_get_destination(&message), caller_)) {
        take_answer(message, type == SD_BUS_MESSAGE_METHOD_ERROR);
    }
}

void Traffic::take_call(sd_bus_message& call) {
    std::uint64_t number = 0;
    check(sd_bus_message_get_cookie(&call, &number), "number of a call");
    const Call made{sd_bus_message_get_destination(&call), sd_bus_message_get_member(&call),
                    Clock::now()};
    const auto answered = answered_.find(made.member);
    if ((answered != answered_.end() && made.sent - answered->second < reading_time) ||
        std::ranges::any_of(unanswered_, [&](const auto& other) {
            return other.second.member == made.member && !other.second.overdue;
        }))
        incidents_.add("overlapping " + made.member);
    unanswered_[number] = made;
}

void Traffic::take_answer(sd_bus_message& answer, bool is_error) {
    std::uint64_t number = 0;
    check(sd_bus_message_get_reply_cookie(&answer, &number), "number of an answer");
    const auto call = unanswered_.find(number);
    if (call == unanswered_.end())
        return;
    if (is_error)
        fail(call->second);
    answered_[call->second.member] = Clock::now();
    unanswered_.erase(call);
}

void Traffic::take_owner_change(sd_bus_message& signal) {
    const auto failed = failed_.find(common::read_string(signal));
    static_cast<void>(common::read_string(signal));
    // Its clients begin anew. The calls that have died with it get their errors after this.
    if (failed == failed_.end() || !common::read_string(signal).empty())
        return;
    for (const std::string& member : failed->second)
        incidents_.forget("failed " + member);
    failed_.erase(failed);
}

void Traffic::fail(const Call& call) {
    incidents_.add("failed " + call.member);
    failed_[call.service].insert(call.member);
}

void Traffic::fail_overdue() {
    const auto now = Clock::now();
    for (auto it = unanswered_.begin(); it != unanswered_.end();) {
        if (!it->second.overdue && now - it->second.sent > timeout_) {
            it->second.overdue = true;
            fail(it->second);
        }
        // It may still die with its service, but not for ever.
        it = now - it->second.sent > 20 * timeout_ ? unanswered_.erase(it) : std::next(it);
    }
}

}  // namespace soak
