#include "host/check/described_type.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

namespace host {
namespace {

using common::Diagnostics;
using common::Json;

/// A whole number without a fraction, as the bounds of an integer have none.
Json number(double value) {
    constexpr double max_exact = 9007199254740992.0;  // 2^53
    if (std::trunc(value) == value && std::abs(value) < max_exact)
        return static_cast<std::int64_t>(value);
    return value;
}

void add_text(Json& json, const char* member, const std::string& text) {
    if (!text.empty())
        json[member] = text;
}

void warn_of_missing(const Json& type, const char* what, const std::string& name,
                     common::SourceLocation location, const std::vector<std::string>& names,
                     Diagnostics& mistakes) {
    mistakes.warning(location,
                     fmt::format("the block type '{}' has no {} '{}'",
                                 type["type"].get<std::string>(), what, name),
                     mistakes.did_you_mean(name, names));
}

/// Describes the items of these lists of a type; warns of data about others.
void describe(Json& type, std::initializer_list<const char*> lists, const char* id,
              const char* what, const ItemsData& items, Diagnostics& mistakes) {
    std::vector<std::string> names;
    for (const char* list : lists) {
        for (Json& item : type[list]) {
            names.push_back(item[id]);
            if (const auto data = items.find(names.back()); data != items.end())
                item.update(to_json(data->second));
        }
    }
    for (const auto& [name, item] : items) {
        if (std::find(names.begin(), names.end(), name) == names.end())
            warn_of_missing(type, what, name, item.location, names, mistakes);
    }
}

/// Warns of the keys that the needs of a type name and that it does not have.
void check_needs(const Json& type, const TypeData& data, Diagnostics& mistakes) {
    std::vector<std::string> keys;
    for (const Json& key : type["keys"])
        keys.push_back(key["key"]);
    const auto check = [&](const std::string& key) -> std::optional<std::string> {
        if (std::find(keys.begin(), keys.end(), key) == keys.end())
            warn_of_missing(type, "key", key, data.location, keys, mistakes);
        return key;
    };
    for (const std::vector<std::string>& list : data.ascending)
        std::for_each(list.begin(), list.end(), check);
    if (!expanded(data.bus_name, check))
        mistakes.warning(data.location,
                         fmt::format("a brace is not closed in the bus name '{}'", data.bus_name));
}

}  // namespace

Json to_json(const Range& range) {
    Json json = Json::object();
    for (const auto& [name, bound] : {std::pair{"min", range.min},
                                      {"above", range.above},
                                      {"max", range.max},
                                      {"below", range.below}}) {
        if (bound)
            json[name] = number(*bound);
    }
    return json;
}

Json to_json(const ItemData& item) {
    Json json = Json::object();
    add_text(json, "description", item.description);
    add_text(json, "unit", item.unit);
    if (Json range = to_json(item.range); !range.empty())
        json["range"] = std::move(range);
    if (item.optional)
        json["optional"] = true;
    add_text(json, "unconnected", item.unconnected);
    return json;
}

Json described(const Json& type, const TypeData& data, Diagnostics& diagnostics) {
    Json all = {{"type", type["type"]}};
    add_text(all, "description", data.description);
    all.update(type);
    Diagnostics& mistakes = diagnostics.other_file(data.file);
    describe(all, {"inputs", "terminated_inputs"}, "name", "input", data.inputs, mistakes);
    describe(all, {"outputs"}, "name", "output", data.outputs, mistakes);
    describe(all, {"event_ports"}, "name", "event port", data.event_ports, mistakes);
    describe(all, {"keys"}, "key", "key", data.keys, mistakes);
    check_needs(type, data, mistakes);
    add_text(all, "one_per_host", data.one_per_host);
    add_text(all, "bus_name", data.bus_name);
    if (!data.ascending.empty())
        all["ascending"] = data.ascending;
    return all;
}

void report_unknown_types(const TypeCatalog& catalog, const std::vector<std::string>& types,
                          Diagnostics& diagnostics) {
    for (const auto& [name, data] : catalog.types()) {
        if (std::find(types.begin(), types.end(), name) != types.end())
            continue;
        Diagnostics& mistakes = diagnostics.other_file(data.file);
        mistakes.warning(data.location,
                         fmt::format("the plug-in registers no block type '{}'", name),
                         mistakes.did_you_mean(name, types));
    }
}

}  // namespace host
