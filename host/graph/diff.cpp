#include "host/graph/diff.hpp"

#include <fmt/core.h>

#include <cmath>
#include <map>

namespace host {
namespace {

using common::Diagnostics;

/// The parts of one kind by their names in sentences. A connection may be listed twice.
using Places = std::multimap<std::string, SourceLocation>;

Places places_of(const std::vector<Located<std::string>>& names, const char* noun) {
    Places places;
    for (const auto& [name, location] : names)
        places.emplace(fmt::format("{} '{}'", noun, name), location);
    return places;
}

Places places_of(const std::vector<BlockEntry>& blocks) {
    Places places;
    for (const BlockEntry& entry : blocks)
        places.emplace(fmt::format("the block '{}'", entry.name), entry.location);
    return places;
}

Places places_of(const std::vector<Connection>& connections) {
    Places places;
    for (const Connection& connection : connections)
        places.emplace(fmt::format("the connection from '{}' to '{}'", connection.from.text(),
                                   connection.to.text()),
                       connection.from.location);
    return places;
}

void report_differences(const Places& now, const Places& next, Diagnostics& diagnostics) {
    for (const auto& [name, location] : next) {
        if (now.count(name) < next.count(name))
            diagnostics.error(location, name + " has been added, which needs a restart");
    }
    for (const auto& [name, location] : now) {
        if (next.count(name) < now.count(name))
            diagnostics.error({}, name + " has been removed, which needs a restart");
    }
}

bool same_value(const Fenwa::BlockConfiguration::Value& a,
                const Fenwa::BlockConfiguration::Value& b) {
    const auto* const x = std::get_if<double>(&a);
    const auto* const y = std::get_if<double>(&b);
    return a == b || (x != nullptr && y != nullptr && std::isnan(*x) && std::isnan(*y));
}

}  // namespace

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

std::vector<std::string> compare_graphs(const Graph& now, const Graph& next,
                                        Diagnostics& diagnostics) {
    report_differences(places_of(now.plugins, "the plug-in"),
                       places_of(next.plugins, "the plug-in"), diagnostics);
    report_differences(places_of(now.bus_names, "the bus name"),
                       places_of(next.bus_names, "the bus name"), diagnostics);
    report_differences(places_of(now.blocks), places_of(next.blocks), diagnostics);
    report_differences(places_of(now.connections), places_of(next.connections), diagnostics);
    if (now.bus_address.value != next.bus_address.value)
        diagnostics.error(next.bus_address.location,
                          fmt::format("the bus changes from '{}' to '{}', which needs a restart",
                                      now.bus_address.value, next.bus_address.value));
    std::map<std::string, const BlockEntry*> entries;
    for (const BlockEntry& entry : now.blocks)
        entries.emplace(entry.name, &entry);
    std::vector<std::string> changed;
    for (const BlockEntry& entry : next.blocks) {
        const auto found = entries.find(entry.name);
        if (found == entries.end())
            continue;
        if (found->second->type.value != entry.type.value)
            diagnostics.error(
                entry.type.location,
                fmt::format("the block '{}' changes type from {} to {}, which needs a restart",
                            entry.name, found->second->type.value, entry.type.value));
        else if (!same_settings(*found->second, entry))
            changed.push_back(entry.name);
    }
    return changed;
}

}  // namespace host
