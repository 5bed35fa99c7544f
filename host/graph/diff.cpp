#include "host/graph/diff.hpp"

#include <fmt/core.h>

#include <cmath>
#include <map>
#include <set>
#include <utility>

namespace host {
namespace {

using common::Diagnostics;

/// Reports the names that only one of two lists has.
void report_differences(const std::vector<Located<std::string>>& now,
                        const std::vector<Located<std::string>>& next, const char* noun,
                        Diagnostics& diagnostics) {
    std::map<std::string, SourceLocation> added;
    for (const auto& [name, location] : next)
        added.emplace(name, location);
    for (const auto& [name, location] : now) {
        if (added.erase(name) == 0)
            diagnostics.error(
                {}, fmt::format("the {} '{}' has been removed, which needs a restart", noun, name));
    }
    for (const auto& [name, location] : added)
        diagnostics.error(
            location, fmt::format("the {} '{}' has been added, which needs a restart", noun, name));
}

std::map<std::string, const BlockEntry*> blocks_by_name(const Graph& graph) {
    std::map<std::string, const BlockEntry*> blocks;
    for (const BlockEntry& entry : graph.blocks)
        blocks.emplace(entry.name, &entry);
    return blocks;
}

/// The connections of one graph that the other one lacks.
std::vector<std::string> connections_without(const Graph& graph, const Graph& other,
                                             const char* preposition) {
    std::set<std::pair<std::string, std::string>> known;
    for (const auto& [from, to] : other.connections)
        known.emplace(from.text(), to.text());
    std::vector<std::string> missing;
    for (const auto& [from, to] : graph.connections) {
        if (known.count({from.text(), to.text()}) == 0)
            missing.push_back(fmt::format("'{}' {} '{}'", from.text(), preposition, to.text()));
    }
    return missing;
}

}  // namespace

bool same_value(const Fenwa::BlockConfiguration::Value& a,
                const Fenwa::BlockConfiguration::Value& b) {
    const auto* const x = std::get_if<double>(&a);
    const auto* const y = std::get_if<double>(&b);
    return a == b || (x != nullptr && y != nullptr && std::isnan(*x) && std::isnan(*y));
}

bool same_settings(const BlockEntry& a, const BlockEntry& b) {
    if (a.settings.size() != b.settings.size())
        return false;
    for (const Setting& setting : a.settings) {
        const Setting* const other = b.find(setting.key);
        if (other == nullptr || setting.value.has_value() != other->value.has_value() ||
            (setting.value && !same_value(*setting.value, *other->value)))
            return false;
    }
    return true;
}

GraphDiff compare_graphs(const Graph& now, const Graph& next, Diagnostics& diagnostics) {
    report_differences(now.plugins, next.plugins, "plug-in", diagnostics);
    report_differences(now.bus_names, next.bus_names, "bus name", diagnostics);
    if (now.bus_address.value != next.bus_address.value)
        diagnostics.error(next.bus_address.location,
                          fmt::format("the bus changes from '{}' to '{}', which needs a restart",
                                      now.bus_address.value, next.bus_address.value));
    GraphDiff diff;
    const auto running = blocks_by_name(now);
    for (const BlockEntry& entry : next.blocks) {
        const auto found = running.find(entry.name);
        if (found == running.end())
            diff.added.push_back(entry.name);
        else if (found->second->type.value != entry.type.value)
            diff.retyped.push_back(entry.name);
        else if (!same_settings(*found->second, entry))
            diff.changed.push_back(entry.name);
    }
    const auto kept = blocks_by_name(next);
    for (const BlockEntry& entry : now.blocks) {
        if (kept.count(entry.name) == 0)
            diff.removed.push_back(entry.name);
    }
    diff.connected = connections_without(next, now, "to");
    diff.disconnected = connections_without(now, next, "from");
    return diff;
}

}  // namespace host
