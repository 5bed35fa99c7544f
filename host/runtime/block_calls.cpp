#include "host/runtime/block_calls.hpp"

#include <fmt/core.h>

#include <algorithm>

namespace host {
namespace {

constexpr std::uint64_t told_once_in = 10'000'000;

/// Whether the error says that the name has no owner, and none could be started.
bool says_unowned(std::string_view error) {
    return error == SD_BUS_ERROR_SERVICE_UNKNOWN || error == SD_BUS_ERROR_NAME_HAS_NO_OWNER;
}

bool says_unanswered(std::string_view error) {
    return error == SD_BUS_ERROR_NO_REPLY || error == SD_BUS_ERROR_TIMEOUT;
}

}  // namespace

std::string describe_failure(const ServiceCall& call) {
    // The last part of the name does, beside a sentence.
    const std::string name =
        call.message.empty() ? call.error : call.error.substr(call.error.rfind('.') + 1);
    return fmt::format("was {} by {}: {}{}{}",
                       says_unanswered(call.error) ? "not answered" : "refused", call.service, name,
                       call.message.empty() ? "" : ": ", call.message);
}

void BlockCalls::follows(const std::string& block, const std::string& service) {
    std::vector<std::string>& services = records_[block].services;
    if (std::find(services.begin(), services.end(), service) == services.end())
        services.push_back(service);
}

void BlockCalls::sent(const std::string& block, ServiceCall call) {
    follows(block, call.service);
    records_[block].last_call = std::move(call);
}

void BlockCalls::ended(const std::string& block, ServiceCall call, const sd_bus_error* error,
                       std::uint64_t now) {
    const auto found = records_.find(block);
    if (found == records_.end())
        return;
    Record& record = found->second;
    call.state = error == nullptr ? ServiceCall::State::answered : ServiceCall::State::failed;
    if (error != nullptr) {
        call.error = error->name == nullptr ? "" : error->name;
        call.message = error->message == nullptr ? "" : error->message;
    }
    const bool unowned = says_unowned(call.error);
    // The bus answers for a service that it cannot reach; any other answer is the service's own.
    set_unowned(block, record, call.service, unowned, now);
    if (!unowned)
        set_refused(block, record, call, now);
    if (call.at == record.last_call.at && call.member == record.last_call.member)
        record.last_call = std::move(call);
}

void BlockCalls::owner_told(const std::string& block, const std::string& service, bool owned,
                            std::uint64_t now) {
    follows(block, service);
    set_unowned(block, records_[block], service, !owned, now);
}

void BlockCalls::owner_appeared(std::string_view service, std::uint64_t now) {
    for (auto& [block, record] : records_) {
        const std::string name(service);
        if (record.unowned.contains(name))
            set_unowned(block, record, name, false, now);
    }
}

void BlockCalls::set_unowned(const std::string& block, Record& record, const std::string& service,
                             bool unowned, std::uint64_t now) {
    if (!unowned && !record.unowned.contains(service))
        return;
    Trouble& trouble = record.unowned[service];
    if (trouble.present == unowned)
        return;
    if (unowned) {
        ++waiting_;
        begin(trouble, {}, now, block, fmt::format(" waits for {}, which nobody owns", service));
    } else {
        --waiting_;
        end(trouble, block, fmt::format(": {} has an owner now", service));
    }
}

void BlockCalls::set_refused(const std::string& block, Record& record, const ServiceCall& call,
                             std::uint64_t now) {
    const std::pair key(call.service, call.member);
    // A limit of the bus is reported as one.
    if (call.state == ServiceCall::State::failed && call.error != SD_BUS_ERROR_LIMITS_EXCEEDED)
        begin(record.refused[key], call.error, now, block,
              fmt::format(": {} {}", call.member, describe_failure(call)));
    else if (const auto found = record.refused.find(key);
             found != record.refused.end() && call.state == ServiceCall::State::answered)
        end(found->second, block,
            fmt::format(": {} is answered by {} now", call.member, call.service));
}

void BlockCalls::begin(Trouble& trouble, const std::string& error, std::uint64_t now,
                       const std::string& block, const std::string& news) {
    if (trouble.present && trouble.error == error)
        return;
    const bool is_due = trouble.told_at == 0 || now - trouble.told_at >= told_once_in;
    trouble.told = is_due || (trouble.present && trouble.told);
    trouble.present = true;
    trouble.error = error;
    if (!is_due)
        return;
    trouble.told_at = now;
    if (on_news_)
        on_news_(common::Severity::warning, block, news);
}

void BlockCalls::end(Trouble& trouble, const std::string& block, const std::string& news) {
    const bool was_told = trouble.present && trouble.told;
    trouble.present = false;
    trouble.told = false;
    if (was_told && on_news_)
        on_news_(common::Severity::info, block, news);
}

const std::vector<std::string>& BlockCalls::services(const std::string& block) const {
    static const std::vector<std::string> none;
    const auto found = records_.find(block);
    return found == records_.end() ? none : found->second.services;
}

const ServiceCall* BlockCalls::last_call(const std::string& block) const {
    const auto found = records_.find(block);
    const bool called = found != records_.end() && !found->second.last_call.service.empty();
    return called ? &found->second.last_call : nullptr;
}

void BlockCalls::forget(const std::string& block) {
    const auto found = records_.find(block);
    if (found == records_.end())
        return;
    for (const auto& [service, trouble] : found->second.unowned)
        waiting_ -= trouble.present ? 1 : 0;
    records_.erase(found);
}

}  // namespace host
