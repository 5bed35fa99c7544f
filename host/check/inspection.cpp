#include "host/check/inspection.hpp"

#include <charconv>
#include <cstdlib>
#include <unordered_set>

#include "common/process/child_process.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/suggestion.hpp"
#include "framework/shared/block_registry.hpp"
#include "framework/shared/configuration_access.hpp"
#include "framework/shared/host_access.hpp"
#include "host/check/key_recorder.hpp"
#include "host/check/probe.hpp"
#include "host/graph/block_json.hpp"
#include "host/plugin/loader.hpp"
#include "host/value/port_value.hpp"

namespace host {
namespace {

using common::Json;
using Fenwa::HostAccess;

constexpr const char* loading = "its entry point";

// What children send: one object a line, with one of these members.
//
//     {"phase": TEXT}             begins now
//     {"unusable": TEXT, "help"}  the plug-in is none
//     {"file", "types"}           it was loaded
//     {"key", "type", "fallback", "found"}
//     {"block": {…}}              after the setup
//     {"threw": TEXT}             what was thrown in the last phase
//     {"did": TEXT}               a whole sentence of what it did instead
//     {"end": true}               nothing more will come

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

void list(const InspectedPlugin& plugin, const Sender& send) {
    Fenwa::BlockRegistry registry;
    PluginLoader loader = loader_of(plugin, registry);
    send.phase(loading);
    try {
        loader.load(plugin.name);
    } catch (const PluginError& error) {
        if (!error.thrown())
            return send({{"unusable", error.what()}, {"help", error.help()}});
        send.threw(*error.thrown());
    }
    send({{"file", loader.find(plugin.name).string()}, {"types", registry.type_names()}});
}

/// @param type for the sentences of mistakes that nobody reads.
Json describe_block(const ProbedBlock& dry, const std::string& type) {
    BlockEntry entry;
    entry.type.text = type;
    common::Diagnostics discarded({});
    const Terminations terminations(dry.settings, *dry.block, entry, discarded);
    Json ports = describe_ports({dry.block.get(), &terminations});
    for (const char* list : {"inputs", "outputs"}) {
        for (Json& port : ports[list])
            port.erase("value");
    }
    Json events = Json::array();
    for (const std::string& name : HostAccess::eventport_names(*dry.block))
        events.push_back({{"name", name}});
    return {{"inputs", ports["inputs"]},        {"outputs", ports["outputs"]},
            {"event_ports", std::move(events)}, {"terminated_inputs", ports["terminated_inputs"]},
            {"exports", ports["exports"]},      {"settings", to_json(dry.settings)}};
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
           const Fenwa::BlockConfiguration& settings, const Sender& send) {
    Fenwa::BlockRegistry registry;
    send.phase(loading);
    try {
        loader_of(plugin, registry).load(plugin.name);
    } catch (const PluginError& error) {
        // That its entry point threw is said where its types are listed.
        if (!error.thrown())
            return send.did(std::string("cannot be built: ") + error.what());
    }
    const Fenwa::BlockFactory* const factory = registry.find(type);
    if (factory == nullptr)
        return send.did("is not registered on every load");
    std::unordered_set<std::string> sent;
    const auto recorder = std::make_shared<KeyRecorder>(
        std::function<void(const Fenwa::ConfigurationError&)>(), [&](const Fenwa::KeyRead& read) {
            const Json message = {{"key", read.key},
                                  {"type", read.type},
                                  {"fallback", to_json(read.fallback, read.type)},
                                  {"found", to_json(read.found, read.type)}};
            if (sent.insert(message.dump()).second)
                send(message);
        });
    DryTools tools;
    ProbedBlock dry(*factory, type, Fenwa::ConfigurationAccess::observed(settings, recorder), tools,
                    [&send](const char* phase) { send.phase(phase); });
    if (dry.failure != nullptr)
        return send.threw(describe(dry.failure));
    if (dry.block == nullptr)
        return send.did("has a factory that returned no block");
    send({{"block", describe_block(dry, type)}});
    send.phase("reconfigure");
    try {
        // Some keys are only asked for when settings change.
        const Fenwa::BlockConfiguration config = HostAccess::configuration(*dry.block);
        dry.block->reconfigure(config, config);
    } catch (...) {
        send.threw(describe(std::current_exception()));
    }
    send.phase("its destructor");
}

/// Does `work` in a child, with what it sends in the hands of `on_message`.
/// @returns what it did that it should not.
std::optional<Misbehaviour> watch(const InspectedPlugin& plugin,
                                  const std::function<void(const Sender&)>& work,
                                  const std::function<void(Json& message)>& on_message) {
    std::string phase = loading;
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
            Json message = Json::parse(line, nullptr, false);
            if (!message.is_object())  // written by somebody else
                return false;
            if (message.contains("end"))
                ended = true;
            else if (message.contains("phase"))
                phase = message["phase"];
            else if (message.contains("threw"))
                threw = {Misbehaviour::Kind::threw,
                         "threw in " + phase + ": " + message["threw"].get<std::string>()};
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

}  // namespace

PluginTypes list_types(const InspectedPlugin& plugin) {
    PluginTypes types;
    std::optional<std::string> unusable;
    types.misbehaviour = watch(
        plugin, [&plugin](const Sender& send) { list(plugin, send); },
        [&](const Json& message) {
            if (message.contains("unusable")) {
                unusable = common::with_help(message["unusable"].get<std::string>(),
                                             message["help"].get<std::string>());
            } else {
                types.file = message["file"];
                types.types = message["types"].get<std::vector<std::string>>();
            }
        });
    if (unusable)
        throw common::Failure(common::ExitCode::unreadable, *unusable);
    return types;
}

BlockSeen try_block(const InspectedPlugin& plugin, const std::string& type,
                    const Fenwa::BlockConfiguration& settings) {
    BlockSeen seen;
    seen.misbehaviour = watch(
        plugin, [&](const Sender& send) { build(plugin, type, settings, send); },
        [&seen](Json& message) {
            if (message.contains("block"))
                seen.block = std::move(message["block"]);
            else if (message.contains("key"))
                seen.keys.push_back({message["key"], message["type"],
                                     std::move(message["fallback"]), std::move(message["found"])});
        });
    return seen;
}

}  // namespace host
