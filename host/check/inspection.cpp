#include "host/check/inspection.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <functional>
#include <nlohmann/json.hpp>
#include <unordered_set>
#include <utility>

#include "common/process/child_process.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/suggestion.hpp"
#include "framework/shared/block_registry.hpp"
#include "framework/shared/configuration_access.hpp"
#include "framework/shared/host_access.hpp"
#include "host/check/probe.hpp"
#include "host/graph/block_json.hpp"
#include "host/plugin/block_types.hpp"
#include "host/value/port_value.hpp"

namespace host {
namespace {

using common::Json;
using Fenwa::HostAccess;

/// A read of a key by a block, in the words of event lines.
struct KeySeen {
    std::string key;
    std::string type;
    Json fallback;  ///< the getter's default, null for none
    Json found;     ///< the value of the key, null for none
    bool live;      ///< in `reconfigure`

    /// The default: the getter's, or one that the block has put under its settings; null for none.
    [[nodiscard]] const Json& default_value() const { return found.is_null() ? fallback : found; }
};

/// The findings about one block that was built, set up, reconfigured and destroyed.
struct BlockSeen {
    std::vector<KeySeen> keys;  ///< until it misbehaved; no read twice
    /// {"inputs", "outputs", "event_ports", "terminated_inputs", "exports", "settings"} as in
    /// `inspect_type`; null if the setup did not return.
    Json block;
    std::optional<Misbehaviour> misbehaviour;
};

// Messages of a child: one object a line, with one of these members.
//
//     {"phase": TEXT}             it begins
//     {"unusable": TEXT, "help", "shortage": BOOL}  the file is not a plug-in, or the machine lacks
//                                                   what its loading needs
//     {"file", "types"}           the plug-in was loaded
//     {"key", "type", "fallback", "found", "live"}
//     {"block": {…}}              after the setup
//     {"threw": TEXT}             the exception of the last phase
//     {"did": TEXT}               another failure, as a whole sentence
//     {"end": true}               the last message

class Sender {
  public:
    explicit Sender(const common::LineSender& send) : send_(send) {}

    void operator()(const Json& message) const { send_(common::json_line(message)); }
    void phase(const char* name) const { (*this)({{"phase", name}}); }
    void threw(const std::string& what) const { (*this)({{"threw", what}}); }
    void did(const std::string& what) const { (*this)({{"did", what}}); }

  private:
    const common::LineSender& send_;
};

PluginLoader loader_of(const InspectedPlugin& plugin, Fenwa::BlockRegistry& registry) {
    return PluginLoader(plugin_folders(plugin.plugin_dirs), {}, registry);
}

void load_types(const InspectedPlugin& plugin, Fenwa::BlockRegistry& registry, const Sender& send) {
    if (plugin.built_in)
        register_built_in_types(registry, nullptr);
    else
        loader_of(plugin, registry).load(plugin.name, [&send](const char* phase) {
            send.phase(phase);
        });
}

void list(const InspectedPlugin& plugin, const Sender& send) {
    Fenwa::BlockRegistry registry;
    std::string file;
    try {
        // Before the plug-in is loaded, which may change the working folder.
        if (!plugin.built_in)
            file = loader_of(plugin, registry).find(plugin.name).string();
        load_types(plugin, registry, send);
    } catch (const PluginError& error) {
        if (error.cause() != PluginError::Cause::thrown)
            return send({{"unusable", error.what()},
                         {"help", error.help()},
                         {"shortage", error.cause() == PluginError::Cause::shortage}});
        send.threw(error.thrown());
    }
    send({{"file", file}, {"types", registry.type_names()}});
}

Json to_json(const ProbedBlock& probed) {
    const BlockEntry entry;
    common::Diagnostics discarded({});
    const Terminations terminations(probed.settings, *probed.block, entry, discarded);
    Json ports = ports_to_json({probed.block.get(), &terminations});
    for (const char* list : {"inputs", "outputs"}) {
        for (Json& port : ports[list])
            port.erase("value");
    }
    Json events = Json::array();
    for (const std::string& name : HostAccess::eventport_names(*probed.block))
        events.push_back({{"name", name}});
    return {{"inputs", ports["inputs"]},        {"outputs", ports["outputs"]},
            {"event_ports", std::move(events)}, {"terminated_inputs", ports["terminated_inputs"]},
            {"exports", ports["exports"]},      {"settings", host::to_json(probed.settings)}};
}

/// The default of a float is the number that was written, not the double nearest to the float.
Json to_json(const std::optional<Fenwa::BlockConfiguration::Value>& value,
             const std::string& type) {
    if (!value)
        return nullptr;
    const double* const number = std::get_if<double>(&*value);
    if (number == nullptr || type != "float")
        return host::to_json(*value);
    char text[64];
    const auto end =
        std::to_chars(std::begin(text), std::end(text) - 1, static_cast<float>(*number)).ptr;
    *end = '\0';
    return common::json_number(std::strtod(text, nullptr));
}

void build(const InspectedPlugin& plugin, const std::string& type,
           const Fenwa::BlockConfiguration& settings, MadeUpValue made_up, const Sender& send) {
    Fenwa::BlockRegistry registry;
    try {
        load_types(plugin, registry, send);
    } catch (const PluginError& error) {
        // An entry point that threw is reported with the list of types.
        if (error.cause() != PluginError::Cause::thrown)
            return send.did(std::string("cannot be built: ") + error.what());
    }
    const Fenwa::BlockFactory* const factory = registry.find(type);
    if (factory == nullptr)
        return send.did("is not registered on every load");
    std::unordered_set<std::string> sent;
    bool in_reconfigure = false;
    const auto recorder = std::make_shared<KeyRecorder>(
        std::function<void(const Fenwa::ConfigurationError&)>(),
        [&](const Fenwa::KeyRead& read) {
            const Json message = {{"key", read.key},
                                  {"type", read.type},
                                  {"fallback", to_json(read.fallback, read.type)},
                                  {"found", to_json(read.found, read.type)},
                                  {"live", in_reconfigure}};
            if (sent.insert(message.dump()).second)
                send(message);
        },
        made_up);
    ProbeTools tools;
    ProbedBlock probed(*factory, type, Fenwa::ConfigurationAccess::observed(settings, recorder),
                       tools, [&send](const char* phase) { send.phase(phase); });
    if (probed.failure != nullptr)
        return send.threw(message_of(probed.failure));
    if (probed.block == nullptr)
        return send.did("has a factory that returned no block");
    send({{"block", to_json(probed)}});
    send.phase("reconfigure");
    in_reconfigure = true;
    try {
        const Fenwa::BlockConfiguration config = HostAccess::configuration(*probed.block);
        probed.block->reconfigure(config, config);
    } catch (...) {
        send.threw(message_of(std::current_exception()));
    }
    send.phase("its destructor");
}

/// Does `work` in a child and passes its messages to `on_message`.
/// @returns its failure.
std::optional<Misbehaviour> watch(const InspectedPlugin& plugin,
                                  const std::function<void(const Sender&)>& work,
                                  const std::function<void(Json& message)>& on_message) {
    std::string phase = "its loading";
    std::optional<Misbehaviour> threw;
    bool ended = false;
    const common::ChildEnd end = common::run_in_child(
        [&work](const common::LineSender& send) {
            const Sender sender(send);
            work(sender);
            sender({{"end", true}});
        },
        plugin.limit,
        [&](const std::string& line) {
            Json message = common::parse_line(line);
            if (!message.is_object())  // the plug-in may write lines of its own
                return false;
            if (message.contains("end"))
                ended = true;
            else if (message.contains("phase"))
                phase = message["phase"];
            else if (message.contains("threw"))
                threw = {
                    Misbehaviour::Kind::threw,
                    fmt::format("threw in {}: {}", phase, message["threw"].get<std::string>())};
            else if (message.contains("did"))
                threw = {Misbehaviour::Kind::threw, message["did"]};
            else
                on_message(message);
            return false;
        });
    if (ended)
        return threw;
    return Misbehaviour{end.timed_out ? Misbehaviour::Kind::hung : Misbehaviour::Kind::crashed,
                        common::misbehaviour(end, phase, plugin.limit)};
}

BlockSeen try_block(const InspectedPlugin& plugin, const std::string& type,
                    const Fenwa::BlockConfiguration& settings, MadeUpValue made_up) {
    BlockSeen seen;
    seen.misbehaviour = watch(
        plugin, [&](const Sender& send) { build(plugin, type, settings, made_up, send); },
        [&seen](Json& message) {
            if (message.contains("block"))
                seen.block = std::move(message["block"]);
            else if (message.contains("key"))
                seen.keys.push_back({message["key"], message["type"],
                                     std::move(message["fallback"]), std::move(message["found"]),
                                     message["live"]});
        });
    return seen;
}

const char* kind_name(Misbehaviour::Kind kind) {
    switch (kind) {
        case Misbehaviour::Kind::threw:
            return "threw";
        case Misbehaviour::Kind::crashed:
            return "crashed";
        case Misbehaviour::Kind::hung:
            return "hung";
    }
    return "";
}

/// Merges the findings of the tries of one block type.
class Explorer {
  public:
    /// Boolean keys with the opposite of their defaults, in the order of the first read.
    using Toggled = std::vector<std::pair<std::string, bool>>;

    /// Takes over the findings of one try, in which these keys were toggled.
    void take(const BlockSeen& seen, const Toggled& toggled) {
        for (const KeySeen& key : seen.keys)
            take_key(key, toggled);
        if (!seen.block.is_null())
            take_block(seen.block, toggled);
    }

    void fail(const Misbehaviour& misbehaviour, const Toggled& toggled) {
        Json failure = {{"kind", kind_name(misbehaviour.kind)}, {"text", misbehaviour.text}};
        add_condition(failure, toggled);
        failures_.push_back(std::move(failure));
    }

    /// In the order of a whole description; an empty list is there too.
    Json description() {
        Json type = Json::object();
        for (const char* list :
             {"inputs", "outputs", "event_ports", "terminated_inputs", "exports"})
            type[list] = std::move(found_[list]);
        type["keys"] = std::move(keys_);
        type["settings"] = std::move(settings_);
        type["failures"] = std::move(failures_);
        return type;
    }

  private:
    void take_key(const KeySeen& seen, const Toggled& toggled) {
        const bool is_toggled = std::any_of(toggled.begin(), toggled.end(), [&](const auto& each) {
            return each.first == seen.key;
        });
        if (is_toggled)  // its value is not the block's
            return;
        const Json& value = seen.default_value();
        auto known = std::find_if(keys_.begin(), keys_.end(),
                                  [&](const Json& key) { return key["key"] == seen.key; });
        if (known == keys_.end()) {
            Json key = {{"key", seen.key}, {"type", seen.type}, {"required", false}};
            key["default"] = value;
            key["live"] = false;
            add_condition(key, toggled);
            known = keys_.insert(keys_.end(), std::move(key));
        }
        if (seen.live)
            (*known)["live"] = true;
        if (value.is_null()) {
            (*known)["required"] = true;
            known->erase("default");
        }
    }

    void take_block(const Json& block, const Toggled& toggled) {
        for (auto& [list, known] : found_.items()) {
            for (Json item : block[list]) {
                const char* const id = item.contains("path") ? "path" : "name";
                const bool is_known =
                    std::any_of(known.begin(), known.end(), [&](const Json& other) {
                        return other[id] == item[id] && (!item.contains("interface") ||
                                                         other["interface"] == item["interface"]);
                    });
                if (is_known)
                    continue;
                add_condition(item, toggled);
                known.push_back(std::move(item));
            }
        }
        if (!std::exchange(has_settings_, true))
            settings_ = block["settings"];
    }

    static void add_condition(Json& item, const Toggled& toggled) {
        for (const auto& [key, value] : toggled)
            item["when"][key] = value;
    }

    bool has_settings_ = false;
    Json found_ = {{"inputs", Json::array()},
                   {"outputs", Json::array()},
                   {"event_ports", Json::array()},
                   {"terminated_inputs", Json::array()},
                   {"exports", Json::array()}};
    Json keys_ = Json::array();
    Json settings_ = Json::object();
    Json failures_ = Json::array();
};

Explorer::Toggled toggle_booleans(const std::vector<KeySeen>& keys) {
    Explorer::Toggled toggled;
    std::unordered_set<std::string> known;
    for (const KeySeen& key : keys) {
        // A boolean without a default was made up as true.
        const bool value = key.default_value().is_null() || key.default_value() == Json(true);
        if (key.type == "bool" && known.insert(key.key).second)
            toggled.emplace_back(key.key, !value);
    }
    return toggled;
}

}  // namespace

PluginTypes list_types(const InspectedPlugin& plugin) {
    PluginTypes types;
    std::optional<common::Failure> unusable;
    types.misbehaviour = watch(
        plugin, [&plugin](const Sender& send) { list(plugin, send); },
        [&](const Json& message) {
            if (message.contains("unusable")) {
                unusable.emplace(
                    message["shortage"] ? common::ExitCode::software : common::ExitCode::unreadable,
                    common::with_help(message["unusable"].get<std::string>(),
                                      message["help"].get<std::string>()));
            } else {
                types.file = message["file"];
                types.types = message["types"].get<std::vector<std::string>>();
            }
        });
    if (unusable)
        throw *unusable;
    return types;
}

namespace {

/// Explores a block type by building it at most twice: with plausible values for its required keys,
/// and then, if it does not accept those, with zeros, or else with all its boolean keys toggled,
/// because other keys, ports and objects may depend on them.
/// @returns {"inputs", …} as in `inspect_type`, without the type's name.
Json explore_type(const InspectedPlugin& plugin, const std::string& type) {
    Explorer explorer;
    const BlockSeen first = try_block(plugin, type, {}, MadeUpValue::plausible);
    explorer.take(first, {});
    const bool has_made_up =
        std::any_of(first.keys.begin(), first.keys.end(),
                    [](const KeySeen& key) { return key.default_value().is_null(); });
    if (first.misbehaviour && first.misbehaviour->kind == Misbehaviour::Kind::hung) {
        explorer.fail(*first.misbehaviour, {});
    } else if (first.misbehaviour && has_made_up) {
        const BlockSeen second = try_block(plugin, type, {}, MadeUpValue::zero);
        explorer.take(second, {});
        if (second.misbehaviour)
            explorer.fail(*first.misbehaviour, {});
    } else {
        if (first.misbehaviour)
            explorer.fail(*first.misbehaviour, {});
        const Explorer::Toggled toggled = toggle_booleans(first.keys);
        if (!toggled.empty()) {
            std::vector<Fenwa::BlockConfiguration::KeyValue> settings;
            for (const auto& [key, value] : toggled)
                settings.emplace_back(key, value);
            const BlockSeen second = try_block(plugin, type, Fenwa::BlockConfiguration(settings),
                                               MadeUpValue::plausible);
            explorer.take(second, toggled);
            if (second.misbehaviour)
                explorer.fail(*second.misbehaviour, toggled);
        }
    }
    return explorer.description();
}

}  // namespace

Json inspect_type(const InspectedPlugin& plugin, const std::string& name) {
    Json type = {{"type", name}};
    type.update(explore_type(plugin, name));
    return type;
}

bool behaved(const Json& type) {
    const Json& failures = type["failures"];
    return std::none_of(failures.begin(), failures.end(), [](const Json& failure) {
        return !failure.contains("when") || failure["kind"] != "threw";
    });
}

}  // namespace host
