#include "host/graph/graph.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <utility>

#include "common/bus/bus.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/line_text.hpp"
#include "common/toml/document.hpp"

namespace host {
namespace {

using common::Diagnostics;
using common::kind_of;
using common::TableReader;
using common::TomlEntry;
using Value = Fenwa::BlockConfiguration::Value;

/// In bytes, with all its tables: each key in a table holds the table's name, which may be half the
/// file.
constexpr std::size_t max_key_length = 1024;

std::vector<Located<std::string>> names_from_toml(const toml::array* list, const std::string& what,
                                                  Diagnostics& diagnostics) {
    std::vector<Located<std::string>> names;
    std::set<std::string> known;
    if (list == nullptr)
        return names;
    for (const toml::node& element : *list) {
        const SourceLocation location = common::position(element);
        const auto* name = element.as_string();
        if (name == nullptr)
            diagnostics.error(location, fmt::format("each of {} must be a string, not {}", what,
                                                    kind_of(element)));
        else if (!known.insert(name->get()).second)
            diagnostics.error(location,
                              fmt::format("'{}' is listed twice in {}", name->get(), what));
        else
            names.push_back({name->get(), location});
    }
    return names;
}

void check_bus_names(const std::vector<Located<std::string>>& names, Diagnostics& diagnostics) {
    for (const auto& [name, location] : names) {
        if (!common::is_ownable_name(name))
            diagnostics.error(location,
                              fmt::format("'{}' is not a valid well-known bus name", name));
    }
}

RateLimit rate_limit_from_toml(const toml::table& table, Diagnostics& diagnostics) {
    TableReader reader(table, "[host]", diagnostics);
    RateLimit rate_limit;
    if (const auto burst = reader.integer("run_burst")) {
        if (*burst < 0)
            diagnostics.error(
                reader.location("run_burst"),
                fmt::format("'run_burst' of [host] must be 0 or more, not {}", *burst));
        else
            rate_limit.burst = static_cast<std::uint64_t>(*burst);
    }
    if (const auto rate = reader.number("run_rate")) {
        if (!std::isfinite(*rate) || *rate < 0.0)
            diagnostics.error(reader.location("run_rate"),
                              "'run_rate' of [host] must be a finite number of 0 or more");
        else
            rate_limit.rate = *rate;
    }
    reader.report_unknown_keys();
    return rate_limit;
}

std::optional<Value> strings_from_toml(const std::string& key, const toml::array& list,
                                       Diagnostics& diagnostics) {
    std::vector<std::string> strings;
    for (const toml::node& element : list) {
        const auto* text = element.as_string();
        if (text == nullptr) {
            diagnostics.error(
                common::position(element),
                fmt::format("the array '{}' must hold strings only, not {}", key, kind_of(element)),
                array_help);
            return std::nullopt;
        }
        strings.push_back(text->get());
    }
    return strings;
}

/// The value of a setting; empty, with a diagnostic, for a kind that no block takes.
std::optional<Value> setting_from_toml(const std::string& key, const toml::node& node,
                                       Diagnostics& diagnostics) {
    if (const auto* boolean = node.as_boolean())
        return boolean->get();
    if (const auto* integer = node.as_integer())
        return integer->get();
    if (const auto* number = node.as_floating_point())
        return number->get();
    if (const auto* text = node.as_string())
        return text->get();
    if (const toml::array* list = node.as_array())
        return strings_from_toml(key, *list, diagnostics);
    diagnostics.error(common::position(node),
                      fmt::format("'{}' must be a boolean, an integer, a float, a string or an "
                                  "array of strings, not {}",
                                  key, kind_of(node)));
    return std::nullopt;
}

/// Flattens a table of settings to dotted keys.
void add_settings(const toml::table& table, const std::string& prefix, BlockEntry& block,
                  Diagnostics& diagnostics) {
    for (const TomlEntry& entry : common::in_file_order(table)) {
        if (prefix.empty() && entry.key == "type")
            continue;
        const std::string key = prefix + entry.key;
        if (key.size() > max_key_length) {
            diagnostics.error(entry.location,
                              fmt::format("the key is longer than {} bytes, its tables included",
                                          max_key_length));
            continue;
        }
        if (const toml::table* inner = entry.value->as_table()) {
            add_settings(*inner, key + '.', block, diagnostics);
            continue;
        }
        if (block.find(key) != nullptr)
            diagnostics.error(entry.location, fmt::format("'{}' is set twice", key));
        else
            block.add({key, entry.location, setting_from_toml(key, *entry.value, diagnostics)});
    }
}

Located<std::string> type_from_toml(const toml::table& table, const TomlEntry& block,
                                    Diagnostics& diagnostics) {
    const toml::node* type = table.get("type");
    if (type == nullptr) {
        diagnostics.error(block.location, fmt::format("the block '{}' has no 'type'", block.key));
        return {};
    }
    if (const auto* text = type->as_string())
        return {text->get(), common::position(*type)};
    diagnostics.error(common::position(*type),
                      fmt::format("'type' of the block '{}' must be a string, not {}", block.key,
                                  kind_of(*type)));
    return {};
}

void add_blocks(const toml::table* blocks, Graph& graph, Diagnostics& diagnostics) {
    if (blocks == nullptr)
        return;
    for (const TomlEntry& entry : common::in_file_order(*blocks)) {
        const toml::table* table = entry.value->as_table();
        if (table == nullptr) {
            diagnostics.error(entry.location, fmt::format("the block '{}' must be a table, not {}",
                                                          entry.key, kind_of(*entry.value)));
            continue;
        }
        // Lines and bus messages carry the name; a zero byte is reported with those of all keys.
        if (common::one_line(entry.key) != entry.key && entry.key.find('\0') == std::string::npos)
            diagnostics.error(entry.location,
                              fmt::format("the block name {} holds a control character",
                                          common::in_quotes(entry.key)));
        BlockEntry block;
        block.name = entry.key;
        block.location = entry.location;
        block.type = type_from_toml(*table, entry, diagnostics);
        add_settings(*table, "", block, diagnostics);
        graph.blocks.push_back(std::move(block));
    }
}

std::optional<Endpoint> endpoint_from_toml(TableReader& reader, std::string_view key,
                                           Diagnostics& diagnostics) {
    const toml::node* node = reader.any(key);
    if (node == nullptr) {
        reader.missing(key);
        return std::nullopt;
    }
    const SourceLocation location = common::position(*node);
    const auto* text = node->as_string();
    if (text == nullptr) {
        diagnostics.error(location, fmt::format("'{}' of a connection must be a string, not {}",
                                                key, kind_of(*node)));
        return std::nullopt;
    }
    std::optional<Endpoint> end = parse_endpoint(text->get(), location);
    if (!end)
        diagnostics.error(location, fmt::format("'{}' is not of the form BLOCK.PORT", text->get()));
    return end;
}

void add_connections(const toml::array* connections, Graph& graph, Diagnostics& diagnostics) {
    if (connections == nullptr)
        return;
    for (const toml::node& element : *connections) {
        const toml::table* table = element.as_table();
        if (table == nullptr) {
            diagnostics.error(
                common::position(element),
                fmt::format("a connection must be a table with 'from' and 'to', not {}",
                            kind_of(element)));
            continue;
        }
        TableReader reader(*table, "the connection", diagnostics);
        const auto from = endpoint_from_toml(reader, "from", diagnostics);
        const auto to = endpoint_from_toml(reader, "to", diagnostics);
        reader.report_unknown_keys();
        // An end that cannot be read stays empty, so that the other end is checked all the same.
        graph.connections.push_back({from.value_or(Endpoint{}), to.value_or(Endpoint{})});
    }
}

}  // namespace

std::optional<Graph> read_graph(const std::string& path, Diagnostics& diagnostics) {
    const std::optional<toml::table> root = common::read_toml(path, diagnostics);
    if (!root)
        return std::nullopt;
    common::report_zero_bytes(*root, diagnostics);
    Graph graph;
    TableReader reader(*root, "the graph", diagnostics);
    graph.plugins = names_from_toml(reader.array("plugins"), "'plugins'", diagnostics);
    if (const toml::table* bus = reader.table("bus")) {
        TableReader bus_reader(*bus, "[bus]", diagnostics);
        if (const auto address = bus_reader.string("address"))
            graph.bus_address = {*address, bus_reader.location("address")};
        graph.bus_names =
            names_from_toml(bus_reader.array("names"), "'names' of [bus]", diagnostics);
        check_bus_names(graph.bus_names, diagnostics);
        bus_reader.report_unknown_keys();
    }
    if (const toml::table* host = reader.table("host"))
        graph.rate_limit = rate_limit_from_toml(*host, diagnostics);
    add_blocks(reader.table("blocks"), graph, diagnostics);
    add_connections(reader.array("connections"), graph, diagnostics);
    reader.report_unknown_keys();
    if (graph.blocks.empty() && diagnostics.errors() == 0)
        diagnostics.error({}, "the graph has no blocks",
                          "a graph needs 'plugins' = [\"NAME.so\"] and for each block a table "
                          "[blocks.NAME] with its 'type'; 'fenwa list' shows plug-ins and types");
    return graph;
}

Value setting_from_text(const std::string& key, const std::string& text) {
    Diagnostics ignored(key);
    // A second line could hold further keys.
    const bool is_one_line = text.find_first_of("\r\n") == std::string::npos;
    const auto table = is_one_line ? common::parse_toml("value = " + text, ignored) : std::nullopt;
    if (!table)
        return text;
    const toml::node& node = *table->get("value");
    // No setting is a date: what looks like one is text.
    if (node.is_date() || node.is_time() || node.is_date_time())
        return text;
    Diagnostics refusal(key);
    std::optional<Value> value = setting_from_toml(key, node, refusal);
    if (!value)
        throw common::Failure(common::ExitCode::usage,
                              refusal.sentences(Diagnostics::Severity::error).front());
    return *std::move(value);
}

Fenwa::BlockConfiguration BlockEntry::configuration() const {
    std::vector<Fenwa::BlockConfiguration::KeyValue> entries;
    for (const Setting& setting : settings) {
        if (setting.value)
            entries.emplace_back(setting.key, *setting.value);
    }
    return Fenwa::BlockConfiguration(entries);
}

bool BlockEntry::add(Setting setting) {
    if (find(setting.key) != nullptr)
        return false;
    settings.push_back(std::move(setting));
    index_.extend(settings, &Setting::key);
    return true;
}

void BlockEntry::set(const std::string& key, Value value) {
    const std::size_t place = index_.find(key, settings, &Setting::key);
    if (place == Fenwa::KeyIndex::none)
        add({key, location, std::move(value)});
    else
        settings[place].value = std::move(value);
}

const Setting* BlockEntry::find(const std::string& key) const {
    const std::size_t place = index_.find(key, settings, &Setting::key);
    return place == Fenwa::KeyIndex::none ? nullptr : &settings[place];
}

SourceLocation BlockEntry::location_of(const std::string& key) const {
    const Setting* const setting = find(key);
    return setting == nullptr ? location : setting->location;
}

const BlockEntry* Graph::find(const std::string& block) const {
    const auto found = std::find_if(blocks.begin(), blocks.end(),
                                    [&](const BlockEntry& entry) { return entry.name == block; });
    return found == blocks.end() ? nullptr : &*found;
}

BlockEntry* Graph::find(const std::string& block) {
    return const_cast<BlockEntry*>(std::as_const(*this).find(block));
}

std::string display_name(const BlockEntry& entry) {
    return fmt::format("block '{}' ({})", entry.name, entry.type.value);
}

std::optional<Endpoint> parse_endpoint(const std::string& text, SourceLocation location) {
    const std::size_t dot = text.rfind('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == text.size())
        return std::nullopt;
    return Endpoint{text.substr(0, dot), text.substr(dot + 1), location};
}

}  // namespace host
