#include "host/check/type_checks.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>
#include <variant>

#include "framework/shared/configuration_access.hpp"
#include "host/check/described_type.hpp"
#include "host/output/inspect_text.hpp"
#include "host/value/port_value.hpp"

namespace host {
namespace {

using common::Diagnostics;
using Value = Fenwa::BlockConfiguration::Value;

std::optional<double> number_in(const Value& value) {
    if (const auto* const integer = std::get_if<std::int64_t>(&value))
        return static_cast<double>(*integer);
    if (const auto* const number = std::get_if<double>(&value))
        return *number;
    return std::nullopt;
}

std::string text_of(const Value& value) {
    return common::json_line(to_json(value));
}

/// Checks one block against the data of its type.
class BlockCheck {
  public:
    BlockCheck(const BlockEntry& entry, const TypeData& data, const BlockReport& report,
               Diagnostics& diagnostics)
        : entry_(entry), data_(data), report_(report), diagnostics_(diagnostics) {}

    void check_ranges() const {
        for (const Setting& setting : entry_.settings) {
            const auto item = data_.keys.find(setting.key);
            if (item == data_.keys.end() || !setting.value)
                continue;
            const std::optional<double> number = number_in(*setting.value);
            if (number && !item->second.range.contains(*number))
                warn(setting.location,
                     fmt::format("'{}' should be {}, not {}", setting.key,
                                 range_text(to_json(item->second.range)), text_of(*setting.value)),
                     item->second.description.empty() ? "" : item_text(to_json(item->second)));
        }
    }

    void check_order() const {
        for (const std::vector<std::string>& keys : data_.ascending) {
            for (std::size_t i = 1; i < keys.size(); ++i)
                check_order(keys[i - 1], keys[i], keys);
        }
    }

    void check_bus_name(const Graph& graph) const {
        const auto name =
            expanded(data_.bus_name, [this](const std::string& key) -> std::optional<std::string> {
                const Value* const value = value_of(key);
                if (value == nullptr)
                    return std::nullopt;
                return common::plain_text(to_json(*value));
            });
        const bool is_fulfilled =
            !name || name->empty() || !report_.ports.complete ||
            std::any_of(graph.bus_names.begin(), graph.bus_names.end(),
                        [&name](const auto& owned) { return owned.value == *name; });
        if (is_fulfilled)
            return;
        warn(entry_.location,
             fmt::format("services call it under the bus name '{}', which the graph does not own",
                         *name),
             graph.bus_names.empty() ? fmt::format("add names = [\"{}\"] to [bus]", *name)
                                     : fmt::format("add \"{}\" to 'names' of [bus]", *name));
    }

  private:
    void check_order(const std::string& low, const std::string& high,
                     const std::vector<std::string>& keys) const {
        const Value* const low_value = value_of(low);
        const Value* const high_value = value_of(high);
        const Setting* const place = last_of(entry_.find(low), entry_.find(high));
        if (low_value == nullptr || high_value == nullptr || place == nullptr)
            return;
        const std::optional<double> low_number = number_in(*low_value);
        const std::optional<double> high_number = number_in(*high_value);
        if (!low_number || !high_number || *low_number <= *high_number)
            return;
        warn(place->location,
             fmt::format("'{}' ({}) should not be above '{}' ({})", low, shown(low, *low_value),
                         high, shown(high, *high_value)),
             fmt::format("the order is {}", fmt::join(keys, " <= ")));
    }

    [[nodiscard]] static const Setting* last_of(const Setting* one, const Setting* other) {
        if (one == nullptr || other == nullptr)
            return one == nullptr ? other : one;
        return one->location < other->location ? other : one;
    }

    [[nodiscard]] std::string shown(const std::string& key, const Value& value) const {
        return text_of(value) + (entry_.find(key) == nullptr ? " by default" : "");
    }

    /// Null for a key that the block does not read or has no value for.
    [[nodiscard]] const Value* value_of(const std::string& key) const {
        return Fenwa::ConfigurationAccess::find(report_.values, key);
    }

    void warn(SourceLocation location, const std::string& text, const std::string& help) const {
        diagnostics_.warning(location, fmt::format("{}: {}", display_name(entry_), text), help);
    }

    const BlockEntry& entry_;
    const TypeData& data_;
    const BlockReport& report_;
    Diagnostics& diagnostics_;
};

void check_alone(const Graph& graph, const BlockReports& blocks, const TypeCatalog& catalog,
                 Diagnostics& diagnostics) {
    std::map<std::string, const BlockEntry*> first_of_type;
    for (const BlockEntry& entry : graph.blocks) {
        const TypeData* const data = catalog.find(entry.type.value);
        if (data == nullptr || data->one_per_host.empty())
            continue;
        const auto [first, is_new] = first_of_type.emplace(entry.type.value, &entry);
        const BlockEntry& other = *first->second;
        if (!is_new && (blocks.contains(entry.name) || blocks.contains(other.name)))
            diagnostics.warning(
                entry.location,
                fmt::format("the blocks '{}' and '{}' are both a {}; with two in one host, {}",
                            other.name, entry.name, entry.type.value, data->one_per_host),
                fmt::format("run '{}' in a host of its own", entry.name));
    }
}

/// Warns of the inputs that no connection ends at. An input of the block itself has no default but
/// the zero of its datatype; one that the host provides has the default that the setup returns.
class InputCheck {
  public:
    InputCheck(const Graph& graph, const TypeCatalog& catalog, Diagnostics& diagnostics)
        : catalog_(catalog), diagnostics_(diagnostics) {
        for (const Connection& connection : graph.connections)
            connected_.emplace(connection.to.block, connection.to.port);
    }

    void check(const BlockEntry& entry, const BlockReport& report) const {
        const TypeData* const data = catalog_.find(entry.type.value);
        if (data == nullptr && catalog_.incomplete())
            return;
        for (std::size_t i = 0; i < report.own_inputs; ++i) {
            const Fenwa::PortInfo& input = report.ports.inputs[i];
            if (connected_.count({entry.name, input.name}) == 0)
                check(entry, input, data == nullptr ? nullptr : find(data->inputs, input.name));
        }
    }

  private:
    [[nodiscard]] static const ItemData* find(const ItemsData& items, const std::string& name) {
        const auto found = items.find(name);
        return found == items.end() ? nullptr : &found->second;
    }

    void check(const BlockEntry& entry, const Fenwa::PortInfo& input, const ItemData* item) const {
        if (item != nullptr && item->optional)
            return;
        const PortValue first = default_value(input.datatype);
        const bool ticks = std::holds_alternative<Fenwa::datatype_timersource>(first);
        std::string effect;
        if (item != nullptr && !item->unconnected.empty())
            effect = ": " + item->unconnected;
        else if (!ticks && !std::holds_alternative<std::monostate>(first))
            effect = ", which stays " + common::json_line(to_json(first));
        diagnostics_.warning(
            entry.location,
            fmt::format("{}: nothing is connected to its input '{}'{}", display_name(entry),
                        input.name, effect),
            fmt::format("connect {} to '{}.{}'",
                        ticks ? "the output 'out' of a Timer"
                              : "an output of the type " + type_name(input.datatype),
                        entry.name, input.name));
    }

    const TypeCatalog& catalog_;
    Diagnostics& diagnostics_;
    std::set<std::pair<std::string, std::string>> connected_;
};

}  // namespace

void check_types(const Graph& graph, const BlockReports& blocks, const TypeCatalog& catalog,
                 Diagnostics& diagnostics) {
    const InputCheck inputs(graph, catalog, diagnostics);
    for (const BlockEntry& entry : graph.blocks) {
        const auto report = blocks.find(entry.name);
        if (report == blocks.end())
            continue;
        check_settings(entry, report->second, catalog, diagnostics);
        if (const TypeData* const data = catalog.find(entry.type.value))
            BlockCheck(entry, *data, report->second, diagnostics).check_bus_name(graph);
        inputs.check(entry, report->second);
    }
    check_alone(graph, blocks, catalog, diagnostics);
}

void check_settings(const BlockEntry& entry, const BlockReport& report, const TypeCatalog& catalog,
                    Diagnostics& diagnostics) {
    if (const TypeData* const data = catalog.find(entry.type.value)) {
        const BlockCheck block(entry, *data, report, diagnostics);
        block.check_ranges();
        block.check_order();
    }
}

}  // namespace host
