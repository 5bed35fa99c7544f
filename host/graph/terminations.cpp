#include "host/graph/terminations.hpp"

#include <algorithm>

#include "framework/shared/configuration_access.hpp"
#include "framework/shared/host_access.hpp"

namespace host {
namespace {

using common::Diagnostics;
using Fenwa::BlockConfiguration;
using Fenwa::ConfigurationAccess;

constexpr const char* inports_key = "termination_cfg.inports";
constexpr const char* types_key = "termination_cfg.types";

/// Says what is wrong with the settings that a block handed over.
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
    [[nodiscard]] std::string sentence(const std::string& what, const std::string& text) const {
        return "the setup of " + describe(entry_) + " gives " + what + ": " + text;
    }

    const BlockEntry& entry_;
    Diagnostics& diagnostics_;
};

/// A list of strings, for which a plain string serves too; empty where the key is missing.
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

/// Whether the name can serve as a port's; connections are written "BLOCK.PORT".
bool is_port_name(const std::string& name) {
    return !name.empty() && name.find('.') == std::string::npos;
}

PortValue read_first_value(const std::string& name, const Fenwa::Datatype& datatype,
                           const BlockConfiguration& settings, const SetupDiagnostics& complaints) {
    const PortValue zero = default_value(datatype);
    const std::string key = "termination_cfg." + name + "_def";
    try {
        return read_setting(datatype, settings, key);
    } catch (const Fenwa::ConfigurationError& error) {
        if (!error.missing())
            complaints.error(error.what());
        else if (!std::holds_alternative<Fenwa::datatype_timersource>(zero))
            complaints.warning("'" + key + "' is missing, so the input '" + name +
                               "' starts with " + common::json_line(to_json(zero)));
    }
    return zero;
}

}  // namespace

Terminations::Input::Input(const std::string& name, const Fenwa::Datatype& datatype,
                           PortValue default_value)
    : first(std::move(default_value)), port(name, datatype, false) {
    Fenwa::HostAccess::connect(port, address_of(first));
}

Terminations::Terminations(const BlockConfiguration& settings, const Fenwa::Block& block,
                           const BlockEntry& entry, Diagnostics& diagnostics) {
    const SetupDiagnostics complaints(entry, diagnostics);
    // A block may hand on what it was given, and that is watched in a dry construction.
    const BlockConfiguration unwatched = ConfigurationAccess::observed(settings, nullptr);
    std::vector<std::string> names;
    std::vector<std::string> types;
    try {
        names = strings(unwatched, inports_key);
        types = strings(unwatched, types_key);
    } catch (const Fenwa::ConfigurationError& error) {
        complaints.error(error.what());
        return;
    }
    if (names.size() != types.size())
        complaints.error(std::string("'") + inports_key + "' has " +
                         common::counted(names.size(), "name") + ", but '" + types_key + "' has " +
                         common::counted(types.size(), "type"));
    for (std::size_t i = 0; i < std::min(names.size(), types.size()); ++i) {
        const std::string& name = names[i];
        const Fenwa::Datatype datatype(types[i]);
        if (!is_port_name(name)) {
            complaints.error("'" + name + "' in '" + inports_key + "' is not a valid port name");
        } else if (find(name) != nullptr) {
            complaints.error("'" + name + "' is listed twice in '" + inports_key + "'");
        } else if (block.get_inport(name) != nullptr) {
            complaints.error("the block already has an input '" + name + "'");
        } else {
            if (std::holds_alternative<std::monostate>(default_value(datatype)))
                complaints.error(
                    "the input '" + name + "' is of the unknown datatype '" + datatype.path() + "'",
                    diagnostics.did_you_mean(datatype.path(), known_datatypes()));
            // With a mistake too, so that connections to it are checked all the same.
            inputs_.push_back(std::make_unique<Input>(
                name, datatype, read_first_value(name, datatype, unwatched, complaints)));
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

}  // namespace host
