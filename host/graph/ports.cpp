#include "host/graph/ports.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "framework/shared/configuration_access.hpp"
#include "framework/shared/host_access.hpp"

namespace host {
namespace {

using common::Diagnostics;
using Fenwa::BlockConfiguration;
using Fenwa::ConfigurationAccess;
using Fenwa::PortInfo;
using Ports = std::vector<PortInfo>;

constexpr const char* inports_key = "termination_cfg.inports";
constexpr const char* types_key = "termination_cfg.types";

/// Reports mistakes in the settings that a block returned from its setup.
class SetupDiagnostics {
  public:
    SetupDiagnostics(const BlockEntry& entry, Diagnostics& diagnostics)
        : entry_(entry), diagnostics_(diagnostics) {}

    void error(const std::string& text, const std::string& help = {}) const {
        diagnostics_.error(entry_.location, sentence("a wrong setting", text), help);
    }
    void warning(const std::string& text) const {
        diagnostics_.warning(entry_.location, sentence("an incomplete setting", text));
    }

  private:
    [[nodiscard]] std::string sentence(const char* what, const std::string& text) const {
        return fmt::format("the setup of {} gives {}: {}", display_name(entry_), what, text);
    }

    const BlockEntry& entry_;
    Diagnostics& diagnostics_;
};

/// A list of strings, or a single string; empty if the key is missing.
/// @throws Fenwa::ConfigurationError
std::vector<std::string> strings(const BlockConfiguration& settings, const std::string& key) {
    const BlockConfiguration::Value* const value = ConfigurationAccess::find(settings, key);
    if (value == nullptr)
        return {};
    if (const auto* list = std::get_if<std::vector<std::string>>(value))
        return *list;
    if (const auto* text = std::get_if<std::string>(value))
        return {*text};
    throw Fenwa::ConfigurationError(key, "list of strings", ConfigurationAccess::describe(*value));
}

/// Connections are written "BLOCK.PORT", so a port's name holds no dot.
bool is_port_name(const std::string& name) {
    return !name.empty() && name.find('.') == std::string::npos;
}

PortValue first_value(const std::string& name, const Fenwa::Datatype& datatype,
                      const BlockConfiguration& settings, const SetupDiagnostics& mistakes) {
    const PortValue zero = default_value(datatype);
    const std::string key = "termination_cfg." + name + "_def";
    try {
        return value_from_config(datatype, settings, key);
    } catch (const Fenwa::ConfigurationError& error) {
        if (!error.missing())
            mistakes.error(error.what());
        else if (!std::holds_alternative<Fenwa::datatype_timersource>(zero))
            mistakes.warning(fmt::format("'{}' is missing, so the input '{}' starts with {}", key,
                                         name, common::json_line(to_json(zero))));
    }
    return zero;
}

/// The block at a connection's end; null, with a diagnostic, if the graph has no such block.
const BlockPorts* find_block(const Endpoint& end, const PortsByName& blocks,
                             const std::vector<std::string>& names, Diagnostics& diagnostics) {
    if (end.block.empty())  // reported when it was read
        return nullptr;
    const auto found = blocks.find(end.block);
    if (found != blocks.end())
        return &found->second;
    diagnostics.error(end.location, fmt::format("no block '{}' in the graph", end.block),
                      diagnostics.did_you_mean(end.block, names));
    return nullptr;
}

const PortInfo* find_port(const Ports& ports, const std::string& name) {
    const auto found = std::find_if(ports.begin(), ports.end(),
                                    [&name](const PortInfo& port) { return port.name == name; });
    return found == ports.end() ? nullptr : &*found;
}

/// The port at a connection's end; null, with a diagnostic, if the block is known not to have it.
/// @param ports of the kind that the end must be of; @param others of the other kind.
const PortInfo* find_port(const Endpoint& end, const BlockPorts& block, const Ports& ports,
                          const char* kind, const Ports& others, const char* other_kind,
                          Diagnostics& diagnostics) {
    const PortInfo* const port = find_port(ports, end.port);
    if (port != nullptr || !block.complete)
        return port;
    if (find_port(others, end.port) != nullptr) {
        diagnostics.error(end.location,
                          fmt::format("'{}' is an {}, not an {}", end.text(), other_kind, kind));
        return nullptr;
    }
    std::vector<std::string> names;
    for (const PortInfo& each : ports)
        names.push_back(each.name);
    diagnostics.error(end.location,
                      fmt::format("the block '{}' has no {} '{}'", end.block, kind, end.port),
                      port_help(end.port, kind, names, diagnostics.suggester()));
    return nullptr;
}

}  // namespace

Terminations::Input::Input(const std::string& name, const Fenwa::Datatype& datatype,
                           PortValue default_value)
    : first(std::move(default_value)), port(name, datatype, false) {
    Fenwa::HostAccess::connect(port, address_of(first));
}

Terminations::Terminations(const BlockConfiguration& settings, const Fenwa::Block& block,
                           const BlockEntry& entry, Diagnostics& diagnostics) {
    const SetupDiagnostics mistakes(entry, diagnostics);
    // A block may return the settings that it was given, and those are observed in a probe.
    const BlockConfiguration unobserved = ConfigurationAccess::observed(settings, nullptr);
    std::vector<std::string> names;
    std::vector<std::string> types;
    try {
        names = strings(unobserved, inports_key);
        types = strings(unobserved, types_key);
    } catch (const Fenwa::ConfigurationError& error) {
        mistakes.error(error.what());
        return;
    }
    if (names.size() != types.size())
        mistakes.error(fmt::format("'{}' has {}, but '{}' has {}", inports_key,
                                   common::counted(names.size(), "name"), types_key,
                                   common::counted(types.size(), "type")));
    for (std::size_t i = 0; i < std::min(names.size(), types.size()); ++i) {
        const std::string& name = names[i];
        const Fenwa::Datatype datatype(types[i]);
        if (!is_port_name(name)) {
            mistakes.error(fmt::format("'{}' in '{}' is not a valid port name", name, inports_key));
        } else if (find(name) != nullptr) {
            mistakes.error(fmt::format("'{}' is listed twice in '{}'", name, inports_key));
        } else if (block.get_inport(name) != nullptr) {
            mistakes.error(fmt::format("the block already has an input '{}'", name));
        } else {
            if (std::holds_alternative<std::monostate>(default_value(datatype)))
                mistakes.error(fmt::format("the input '{}' is of the unknown datatype '{}'", name,
                                           datatype.path()),
                               diagnostics.did_you_mean(datatype.path(), known_datatypes()));
            // In spite of a mistake, so that connections to it are checked all the same.
            inputs_.push_back(std::make_unique<Input>(
                name, datatype, first_value(name, datatype, unobserved, mistakes)));
        }
    }
}

Fenwa::InPortInternal* Terminations::find(const std::string& name) const {
    const auto found = std::find_if(inputs_.begin(), inputs_.end(), [&name](const auto& input) {
        return input->port.name() == name;
    });
    return found == inputs_.end() ? nullptr : &(*found)->port;
}

std::vector<std::string> Terminations::names() const {
    std::vector<std::string> names;
    for (const auto& input : inputs_)
        names.push_back(input->port.name());
    return names;
}

void Terminations::disconnect() {
    for (const auto& input : inputs_)
        Fenwa::HostAccess::connect(input->port, address_of(input->first));
}

Fenwa::InPortInternal* ConnectableBlock::inport(const std::string& name) const {
    Fenwa::InPortInternal* const own = block->get_inport(name);
    return own != nullptr ? own : terminations->find(name);
}

std::vector<std::string> ConnectableBlock::inport_names() const {
    std::vector<std::string> names = block->get_inport_names();
    const std::vector<std::string> provided = terminations->names();
    names.insert(names.end(), provided.begin(), provided.end());
    return names;
}

BlockPorts ports_of(const ConnectableBlock& block) {
    BlockPorts ports{block.block->get_inports_info(), block.block->get_outports_info(), true};
    for (const std::string& name : block.terminations->names())
        ports.inputs.push_back({name, block.terminations->find(name)->datatype()});
    return ports;
}

std::string port_help(const std::string& typed, const char* kind,
                      const std::vector<std::string>& names, common::Suggester& suggester) {
    std::string help = suggester.did_you_mean(typed, names);
    if (!help.empty())
        return help;
    if (names.empty())
        return fmt::format("it has no {}s", kind);
    for (const std::string& name : names)
        help += fmt::format("{} '{}'", help.empty() ? "it has:" : ",", name);
    return help;
}

void check_connections(const Graph& graph, const PortsByName& blocks, Diagnostics& diagnostics) {
    std::map<std::string, SourceLocation> connected;
    std::vector<std::string> names;
    for (const auto& [name, ports] : blocks)
        names.push_back(name);
    for (const auto& [from, to] : graph.connections) {
        const BlockPorts* const source = find_block(from, blocks, names, diagnostics);
        const BlockPorts* const target = find_block(to, blocks, names, diagnostics);
        const auto [first, is_new] = connected.emplace(to.text(), to.location);
        if (!is_new && !to.block.empty())
            diagnostics.error(to.location,
                              fmt::format("'{}' is connected already, at {}", to.text(),
                                          diagnostics.locate(first->second)));
        const PortInfo* const out = source == nullptr
                                        ? nullptr
                                        : find_port(from, *source, source->outputs, "output",
                                                    source->inputs, "input", diagnostics);
        const PortInfo* const in = target == nullptr
                                       ? nullptr
                                       : find_port(to, *target, target->inputs, "input",
                                                   target->outputs, "output", diagnostics);
        if (out != nullptr && in != nullptr && out->datatype != in->datatype)
            diagnostics.error(to.location, fmt::format("'{}' takes {}, but '{}' gives {}",
                                                       to.text(), type_name(in->datatype),
                                                       from.text(), type_name(out->datatype)));
    }
}

}  // namespace host
