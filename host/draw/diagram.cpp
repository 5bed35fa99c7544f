#include "host/draw/diagram.hpp"

#include <algorithm>
#include <cstdio>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "common/text/utf8.hpp"
#include "host/graph/graph.hpp"

namespace host {
namespace {

using common::Json;

/// The most settings of a block that are drawn; more would hide the graph.
constexpr std::size_t max_settings = 5;
/// The most letters of a value that are drawn.
constexpr std::size_t max_value_length = 28;

/// Cuts a text between two letters.
std::string shortened(const std::string& text) {
    const std::string_view begin = common::first_code_points(text, max_value_length);
    return std::string(begin) + (begin.size() < text.size() ? "…" : "");
}

/// A value as a picture shows it, which is for a glance: six digits do.
std::string value_text(const Json& value) {
    if (value.is_number_float()) {
        char digits[32];
        std::snprintf(digits, sizeof digits, "%.6g", value.get<double>());
        const std::string text = digits;
        return text.find_first_of(".e") == std::string::npos ? text + ".0" : text;
    }
    if (value.is_object() && value.contains("ticks") && value["ticks"] == 0)
        return "no tick yet";
    if (value.is_object() && value.contains("ticks"))
        return common::json_line(value["ticks"]) + " × " +
               common::json_line(value.at("period_ms")) + " ms";
    return shortened(value.is_string() ? value.get<std::string>() : common::json_line(value));
}

DiagramPort make_port(const Json& port, DiagramValues values) {
    DiagramPort made;
    made.name = port.at("name");
    made.type = port.at("type");
    if (values == DiagramValues::shown && !port.at("value").is_null())
        made.value = value_text(port["value"]);
    return made;
}

/// A list, or an empty one.
Json list_of(const Json& block, const char* name) {
    const auto found = block.find(name);
    return found == block.end() || found->is_null() ? Json::array() : *found;
}

std::vector<std::string> lines_of(const Json& block) {
    std::vector<std::string> lines;
    const Json& settings = block.at("settings");
    for (const auto& [key, value] : settings.items()) {
        if (lines.size() == max_settings) {
            lines.emplace_back("…");
            break;
        }
        lines.push_back(key + " = " + shortened(common::json_line(value)));
    }
    for (const Json& object : list_of(block, "exports"))
        lines.push_back("exports " + object.at("interface").get<std::string>());
    return lines;
}

/// What keeps a running block from working.
std::vector<std::string> troubles_of(const Json& status) {
    std::vector<std::string> troubles;
    for (const Json& service : list_of(status, "waits_for"))
        troubles.push_back("waiting for " + service.get<std::string>());
    const Json call = status.value("last_call", Json());
    if (call.is_object() && call.contains("error"))
        troubles.push_back(call.at("member").get<std::string>() + ": " +
                           shortened(call.at("error").get<std::string>()));
    if (status.value("paced", false))
        troubles.emplace_back("tries again and again");
    return troubles;
}

DiagramBlock make_block(const Json& block, DiagramValues values) {
    DiagramBlock made;
    made.name = block.at("name");
    made.type = block.at("type");
    for (const Json& port : list_of(block, "inputs")) {
        made.inputs.push_back(make_port(port, values));
        made.inputs.back().passive = !port.value("triggers", true);
    }
    for (const Json& port : list_of(block, "terminated_inputs")) {
        made.inputs.push_back(make_port(port, values));
        made.inputs.back().passive = true;
        made.inputs.back().remark = "provided by the host";
    }
    for (const Json& port : list_of(block, "outputs"))
        made.outputs.push_back(make_port(port, values));
    made.lines = lines_of(block);
    if (block.contains("status"))
        made.troubles = troubles_of(block["status"]);
    return made;
}

std::size_t port_named(const std::string& name, std::vector<DiagramPort>& ports) {
    const auto found = std::find_if(ports.begin(), ports.end(),
                                    [&name](const DiagramPort& port) { return port.name == name; });
    if (found == ports.end()) {
        ports.emplace_back().name = name;
        return ports.size() - 1;
    }
    return static_cast<std::size_t>(found - ports.begin());
}

}  // namespace

Diagram make_diagram(const Json& description, DiagramValues values) {
    Diagram diagram;
    std::unordered_map<std::string, std::size_t> blocks;
    std::unordered_map<std::string, std::size_t> services;
    for (const Json& block : description.at("blocks")) {
        const std::size_t at = diagram.blocks.size();
        diagram.blocks.push_back(make_block(block, values));
        blocks.emplace(diagram.blocks.back().name, at);
        for (const std::string name : list_of(block, "services")) {
            const auto [service, is_new] = services.emplace(name, diagram.services.size());
            if (is_new)
                diagram.services.push_back({name, {}});
            diagram.services[service->second].blocks.push_back(at);
        }
    }
    for (const Json& connection : description.at("connections")) {
        const std::optional<Endpoint> from = parse_endpoint(connection.at("from"));
        const std::optional<Endpoint> to = parse_endpoint(connection.at("to"));
        if (!from || !to || blocks.count(from->block) == 0 || blocks.count(to->block) == 0)
            continue;
        const std::size_t source = blocks[from->block];
        const std::size_t target = blocks[to->block];
        diagram.connections.push_back(
            {{source, port_named(from->port, diagram.blocks[source].outputs)},
             {target, port_named(to->port, diagram.blocks[target].inputs)}});
    }
    return diagram;
}

std::vector<std::vector<std::size_t>> connected_parts(const Diagram& diagram) {
    std::vector<std::size_t> part_of(diagram.blocks.size());
    std::iota(part_of.begin(), part_of.end(), std::size_t{0});
    const auto join = [&part_of](std::size_t one, std::size_t other) {
        const std::size_t kept = std::min(part_of[one], part_of[other]);
        const std::size_t gone = std::max(part_of[one], part_of[other]);
        std::replace(part_of.begin(), part_of.end(), gone, kept);
    };
    for (const DiagramConnection& connection : diagram.connections)
        join(connection.from.block, connection.to.block);
    for (const DiagramService& service : diagram.services) {
        for (const std::size_t block : service.blocks)
            join(service.blocks.front(), block);
    }
    std::map<std::size_t, std::vector<std::size_t>> parts;
    for (std::size_t block = 0; block < part_of.size(); ++block)
        parts[part_of[block]].push_back(block);
    std::vector<std::vector<std::size_t>> in_order;
    for (auto& [first, blocks] : parts)
        in_order.push_back(std::move(blocks));
    return in_order;
}

}  // namespace host
