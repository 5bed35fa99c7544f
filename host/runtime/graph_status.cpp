#include "host/runtime/graph_status.hpp"

#include <fmt/format.h>

#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "common/events/monotonic_clock.hpp"
#include "framework/shared/host_access.hpp"

namespace host {
namespace {

using common::Json;

/// Seconds, to the millisecond: two readings are never the same anyway.
double seconds_ago(std::uint64_t time, std::uint64_t now) {
    return static_cast<double>((now - time) / 1000) / 1e3;
}

std::vector<std::string> unowned_services(const RunningGraph& graph, const std::string& block,
                                          const OwnedNames& names) {
    std::vector<std::string> unowned;
    if (graph.calls() == nullptr || !names)
        return unowned;
    for (const std::string& service : graph.calls()->services(block)) {
        if (!names->contains(service))
            unowned.push_back(service);
    }
    return unowned;
}

Json call_json(const ServiceCall* call, std::uint64_t now) {
    if (call == nullptr)
        return nullptr;
    Json json = {{"service", call->service},
                 {"member", call->member},
                 {"age", seconds_ago(call->at, now)},
                 {"answered", call->state == ServiceCall::State::answered}};
    if (call->state == ServiceCall::State::failed) {
        json["error"] = call->error;
        json["message"] = call->message;
    }
    return json;
}

/// What keeps a block from publishing; empty for nothing that is known.
std::string reason_of(const RunningGraph& graph, const std::string& block,
                      const OwnedNames& names) {
    const std::vector<std::string> unowned = unowned_services(graph, block, names);
    if (!unowned.empty())
        return fmt::format("it waits for {}, which nobody owns", fmt::join(unowned, " and "));
    const ServiceCall* const call =
        graph.calls() == nullptr ? nullptr : graph.calls()->last_call(block);
    if (call == nullptr || call->state == ServiceCall::State::answered)
        return {};
    if (call->state == ServiceCall::State::failed)
        return call->member + " " + describe_failure(*call);
    return fmt::format("it waits for the answer of {} to {}", call->service, call->member);
}

}  // namespace

Json status_json(const RunningGraph& graph, const BlockInstance& instance,
                 const OwnedNames& names) {
    const std::uint64_t now = common::monotonic_now();
    const BlockStatus& status = instance.status();
    Json json = {
        {"phase", status.runs() == 0 ? "started" : "running"},
        {"runs", status.runs()},
        {"runs_per_second", std::round(status.runs_per_second(now) * 10) / 10},
        {"last_run", status.runs() == 0 ? Json() : Json(seconds_ago(status.last_run(), now))},
        {"published", status.values_published()},
        {"waits_for", nullptr},
        {"paced", graph.is_paced(instance)},
        {"last_call",
         call_json(graph.calls() == nullptr ? nullptr : graph.calls()->last_call(instance.name()),
                   now)},
        {"last_log", nullptr}};
    if (names)
        json["waits_for"] = unowned_services(graph, instance.name(), names);
    if (status.last_line())
        json["last_log"] = {{"level", status.last_line()->level},
                            {"message", status.last_line()->message},
                            {"age", seconds_ago(status.last_line()->at, now)}};
    return json;
}

std::vector<SilentBlock> silent_blocks(const RunningGraph& graph, const OwnedNames& names) {
    const auto is_silent = [&graph](const std::string& block) {
        const BlockInstance& instance = *graph.find(block);
        return instance.status().values_published() == 0 &&
               !Fenwa::HostAccess::outports(*instance.block()).empty();
    };
    std::unordered_map<std::string, std::string> reasons;
    std::multimap<std::string, const Connection*> outgoing;
    for (const Connection& connection : graph.graph().connections)
        outgoing.emplace(connection.from.block, &connection);
    std::vector<std::string> found;
    for (const BlockEntry& entry : graph.graph().blocks) {
        std::string reason =
            is_silent(entry.name) ? reason_of(graph, entry.name, names) : std::string();
        if (!reason.empty() && reasons.emplace(entry.name, std::move(reason)).second)
            found.push_back(entry.name);
    }
    // A block that has never run waits for those before it.
    while (!found.empty()) {
        const std::string block = std::move(found.back());
        found.pop_back();
        const auto [begin, end] = outgoing.equal_range(block);
        for (auto next = begin; next != end; ++next) {
            const Connection& connection = *next->second;
            const std::string& to = connection.to.block;
            if (graph.find(to)->status().runs() == 0 && is_silent(to) &&
                reasons
                    .emplace(to,
                             fmt::format("it waits for a value of '{}'", connection.from.text()))
                    .second)
                found.push_back(to);
        }
    }
    std::vector<SilentBlock> silent;
    for (const BlockEntry& entry : graph.graph().blocks) {
        if (const auto reason = reasons.find(entry.name); reason != reasons.end())
            silent.push_back({entry.name, reason->second});
    }
    return silent;
}

}  // namespace host
