#include "camera/service/reply_script.hpp"

#include <nlohmann/json.hpp>
#include <utility>

#include "camera/bus/message_json.hpp"

namespace camera {
namespace {

bool fits(const ScriptedReply& reply, const std::string& service, sd_bus_message& call,
          const common::Json& arguments) {
    return (reply.service.empty() || reply.service == service) &&
           reply.member == text_or_empty(sd_bus_message_get_member(&call)) &&
           (reply.path.empty() || reply.path == text_or_empty(sd_bus_message_get_path(&call))) &&
           (!reply.arguments || *reply.arguments == arguments);
}

}  // namespace

std::size_t ReplyScript::add(const ScriptedReply& reply) {
    entries_.push_back({&reply});
    return entries_.size() - 1;
}

std::optional<ReplyScript::Claim> ReplyScript::claim(const std::string& service,
                                                     sd_bus_message& call) {
    if (entries_.empty() || sd_bus_message_get_expect_reply(&call) <= 0)
        return std::nullopt;
    const common::Json arguments = body_json(call);
    const ScriptedReply* last = nullptr;
    for (std::size_t number = 0; number < entries_.size(); ++number) {
        Entry& entry = entries_[number];
        if (!fits(*entry.reply, service, call, arguments))
            continue;
        last = entry.reply;
        if (entry.arrival)
            continue;
        entry.arrival = Clock::now();
        return Claim{last, number};
    }
    return last == nullptr ? std::nullopt : std::optional(Claim{last, std::nullopt});
}

void ReplyScript::hand_over(const Claim& claim, const std::string& service, Answer answer) {
    if (!claim.number || entries_[*claim.number].released)
        return answer(*claim.reply);
    Entry& entry = entries_[*claim.number];
    entry.answer = std::move(answer);
    entry.service = service;
    observer_(*claim.number);
}

void ReplyScript::release(std::size_t number) {
    Entry& entry = entries_[number];
    entry.released = true;
    if (const Answer answer = std::exchange(entry.answer, nullptr))
        answer(*entry.reply);
}

void ReplyScript::forget(const std::string& service) {
    // The arrival stays: the calls that come next belong to later replies.
    for (Entry& entry : entries_) {
        if (entry.service == service)
            entry.answer = nullptr;
    }
}

}  // namespace camera
