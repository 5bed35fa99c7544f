#include "host/check/graph_check.hpp"

#include <fmt/core.h>
#include <systemd/sd-bus.h>

#include <exception>
#include <nlohmann/json.hpp>
#include <set>

#include "common/process/child_process.hpp"
#include "framework/shared/host_access.hpp"
#include "framework/shared/log_mute.hpp"
#include "framework/shared/port_watch.hpp"
#include "host/check/settings_text.hpp"
#include "host/check/type_checks.hpp"
#include "host/output/activity.hpp"

namespace host {
namespace {

using common::Diagnostics;
using common::ExitCode;
using common::Json;

/// The check gives up after so many lost children, and after so many of them that hung.
constexpr std::size_t max_lost = 16;
constexpr std::size_t max_hung = 3;

// Messages of a child: arrays, one a line, that begin with one of these words.
namespace word {

constexpr const char* plugin = "plugin";      // INDEX, PHASE: begins
constexpr const char* unusable = "unusable";  // INDEX, TEXT, HELP, MISTAKE
constexpr const char* block = "block";        // INDEX: its probe begins
constexpr const char* phase = "phase";        // TEXT, DEPTH: begins
constexpr const char* made_up = "made up";    // the block has been given a made-up value
constexpr const char* missing = "missing";    // its type may belong to a missing plug-in
constexpr const char* input = "input";        // NAME, DATATYPE: was added
constexpr const char* output = "output";      // NAME, DATATYPE
constexpr const char* built = "built";        // NAMES and DATATYPES of terminated inputs, EXPORTS,
                                              // VALUES
constexpr const char* look = "look";          // the result of the look
constexpr const char* threw = "threw";        // which was reported
constexpr const char* diagnostic = "diagnostic";  // SEVERITY, LINE, COLUMN, TEXT, HELP
constexpr const char* more = "more";              // ERRORS, WARNINGS that are not kept
constexpr const char* end = "end";                // the last message

}  // namespace word

/// The work of a child.
class Worker {
  public:
    Worker(const ProbeJob& job, Diagnostics& diagnostics, const common::LineSender& send_line)
        : job_(job), diagnostics_(diagnostics), send_line_(send_line) {
        Fenwa::LogMute::mute_process();
        diagnostics_.listen([this](const Diagnostics::Entry& entry) {
            send({word::diagnostic, entry.severity == Diagnostics::Severity::error,
                  entry.location.line, entry.location.column, entry.text, entry.help});
        });
    }

    /// @param lost plug-ins to be skipped.
    void load_plugins(const std::vector<bool>& lost) {
        PluginLoader loader = job_.types.make_loader(job_.plugin_dirs, diagnostics_.file());
        for (std::size_t i = 0; i < job_.plugins.size(); ++i) {
            if (lost[i]) {
                job_.types.set_incomplete();
                continue;
            }
            try {
                loader.load(job_.plugins[i].value, [this, i](const char* phase) {
                    send({word::plugin, i, phase});
                });
            } catch (const PluginError& error) {
                job_.types.set_incomplete();
                send({word::unusable, i, error.what(), error.help(),
                      error.cause() == PluginError::Cause::mistake});
            }
        }
    }

    void probe_block(std::size_t i, Depth depth) {
        send({word::block, i});
        const BlockEntry& entry = *job_.blocks[i];
        if (job_.types.may_be_missing(entry))
            send({word::missing});
        Probe probed(entry, job_.types, diagnostics_, job_.strictness, progress());
        if (build(probed)) {
            send_built(probed);
            if (depth != Depth::build)
                probed.find_unread_keys();
            if (depth != Depth::build && job_.find_live_keys)
                probed.find_live_keys(depth);
            if (job_.look)
                send({word::look, job_.look(probed)});
            probed.destroy();
        } else if (probed.threw()) {
            send({word::threw});
        }
        send_more();
    }

    void end() const { send({word::end}); }

  private:
    void send(const Json& message) const { send_line_(common::json_line(message)); }

    ProbeProgress progress() {
        return {[this](const char* phase, Depth depth) {
                    send({word::phase, phase, static_cast<int>(depth)});
                },
                [this, sent = false]() mutable {
                    if (!std::exchange(sent, true))
                        send({word::made_up});
                }};
    }

    bool build(Probe& probed) {
        const Fenwa::PortWatch watch(
            [this](const Fenwa::InPortInternal& port) {
                send({word::input, port.name(), port.datatype().path()});
            },
            [this](const Fenwa::OutPortInternal& port) {
                send({word::output, port.name(), port.datatype().path()});
            });
        return probed.build();
    }

    void send_built(const Probe& probed) const {
        const ConnectableBlock block = probed.block();
        Json terminated = Json::array();
        for (const std::string& name : block.terminations->names())
            terminated.push_back({name, block.terminations->find(name)->datatype().path()});
        Json exports = Json::array();
        for (const auto& [path, interface] : Fenwa::HostAccess::exported_objects(*block.block))
            exports.push_back({path, interface});
        send({word::built, std::move(terminated), std::move(exports),
              settings_to_text(probed.values())});
    }

    void send_more() {
        const std::size_t errors = diagnostics_.not_kept(Diagnostics::Severity::error);
        const std::size_t warnings = diagnostics_.not_kept(Diagnostics::Severity::warning);
        const std::size_t more_errors = errors - std::exchange(errors_not_kept_, errors);
        const std::size_t more_warnings = warnings - std::exchange(warnings_not_kept_, warnings);
        if (more_errors + more_warnings != 0)
            send({word::more, more_errors, more_warnings});
    }

    const ProbeJob& job_;
    Diagnostics& diagnostics_;
    const common::LineSender& send_line_;
    const Fenwa::LogMute mute_;
    std::size_t errors_not_kept_ = diagnostics_.not_kept(Diagnostics::Severity::error);
    std::size_t warnings_not_kept_ = diagnostics_.not_kept(Diagnostics::Severity::warning);
};

/// The parent: starts children until everything is probed.
class Prober {
  public:
    Prober(const ProbeJob& job, Diagnostics& diagnostics)
        : job_(job),
          diagnostics_(diagnostics),
          unusable_(job.plugins.size()),
          lost_plugins_(job.plugins.size()) {
        for (const BlockEntry* entry : job.blocks)
            probe_.blocks[entry->name];
    }

    ProbeResult run() {
        while (!run_child() && at_ != At::starting) {
            if (lost_ == max_lost || hung_ == max_hung) {
                fail_to_check(
                    "the rest of the graph is not checked, because too much of it has crashed or "
                    "hung");
                break;
            }
        }
        report_plugins();
        return std::move(probe_);
    }

  private:
    /// The activity of the child.
    enum class At {
        starting,
        plugin,     ///< loads one
        block,      ///< builds, sets up or destroys one
        exploring,  ///< does with a block what a run does not do
        end         ///< has sent its last message
    };

    struct Unusable {
        std::string text;
        std::string help;
        bool is_mistake;  ///< of the graph
    };

    /// @returns whether nothing is left to do.
    bool run_child() {
        const Activity waiting("a child process that tries blocks out", "", nullptr);
        enter(At::starting, 0);
        const common::ChildEnd end = common::run_in_child(
            [this](const common::LineSender& send) { work(send); }, job_.limit,
            [this](const std::string& line) { return receive(common::parse_line(line)); });
        if (at_ == At::end)
            return true;
        lose(end);
        return false;
    }

    void work(const common::LineSender& send) {
        Worker worker(job_, diagnostics_, send);
        worker.load_plugins(lost_plugins_);
        for (std::size_t i = next_block_; i < job_.blocks.size(); ++i)
            worker.probe_block(i, depth_of(i));
        worker.end();
    }

    /// @returns whether a step begins that has a time limit of its own.
    bool receive(const Json& message) {
        try {
            // A plug-in may write lines of its own.
            return message.is_array() && take(message.at(0).get<std::string>(), message);
        } catch (const std::exception&) {
            return false;
        }
    }

    bool take(const std::string& word, const Json& message) {
        if (word == word::phase) {
            phase_ = message.at(1);
            depth_ = static_cast<Depth>(common::number_from_json<int>(message.at(2)));
            enter(depth_ == Depth::build ? At::block : At::exploring, index_);
            return true;
        }
        if (word == word::plugin) {
            enter(At::plugin, message.at(1));
            phase_ = message.at(2);
            return true;
        }
        if (word == word::block) {
            enter(At::block, message.at(1));
            made_up_ = false;
            block() = {};
            return true;
        }
        if (word == word::diagnostic)
            diagnostics_.add(
                {message.at(1) ? Diagnostics::Severity::error : Diagnostics::Severity::warning,
                 {message.at(2), message.at(3)},
                 message.at(4),
                 message.at(5)});
        else if (word == word::more)
            count_more(message.at(1), message.at(2));
        else if (word == word::input)
            block().ports.inputs.push_back(port(message));
        else if (word == word::output)
            block().ports.outputs.push_back(port(message));
        else if (word == word::built)
            take_built(message);
        else if (word == word::look)
            block().look = common::share(message.at(1));
        else if (word == word::made_up)
            made_up_ = true;
        else if (word == word::missing)
            is_type_missing_ = true;
        else if (word == word::threw)
            ++probe_.not_mistakes;
        else if (word == word::unusable)
            unusable_.at(message.at(1)) = Unusable{message.at(2), message.at(3), message.at(4)};
        else if (word == word::end)
            enter(At::end, index_);
        return false;
    }

    static Fenwa::PortInfo port(const Json& message) {
        return {message.at(1), Fenwa::Datatype(message.at(2).get<std::string>())};
    }

    void take_built(const Json& message) {
        block().own_inputs = block().ports.inputs.size();
        for (const Json& input : message.at(1))
            block().ports.inputs.push_back(
                {input.at(0), Fenwa::Datatype(input.at(1).get<std::string>())});
        for (const Json& object : message.at(2))
            block().exports.emplace_back(object.at(0), object.at(1));
        block().values = settings_from_text(message.at(3));
        block().ports.complete = true;
    }

    void count_more(std::size_t errors, std::size_t warnings) {
        diagnostics_.count_more(Diagnostics::Severity::error, errors);
        diagnostics_.count_more(Diagnostics::Severity::warning, warnings);
    }

    [[nodiscard]] const BlockEntry& entry() const { return *job_.blocks.at(index_); }
    [[nodiscard]] BlockReport& block() { return probe_.blocks.at(entry().name); }

    void enter(At at, std::size_t index) noexcept {
        at_ = at;
        index_ = index;
    }

    /// How far to go with a block: not again to where a child was lost.
    [[nodiscard]] Depth depth_of(std::size_t i) const {
        if (i == next_block_ && !explore_)
            return Depth::build;
        return spoilt_by_toggling_.count(job_.blocks[i]->type.value) == 0 ? Depth::toggle
                                                                          : Depth::reconfigure;
    }

    /// Reports what is no mistake of the graph.
    void fail_to_check(const std::string& sentence) {
        diagnostics_.error({}, sentence);
        ++probe_.not_mistakes;
    }

    /// A child did not come to its end.
    void lose(const common::ChildEnd& end) {
        if (at_ == At::exploring && depth_ == Depth::toggle) {
            // Nobody has asked for a block with these settings.
            next_block_ = index_;
            explore_ = true;
            spoilt_by_toggling_.insert(entry().type.value);
            return;
        }
        ++lost_;
        hung_ += end.timed_out ? 1U : 0U;
        const std::string did = common::misbehaviour(end, phase_, job_.limit);
        switch (at_) {
            case At::plugin:
                lost_plugins_.at(index_) = true;
                unusable_.at(index_) =
                    Unusable{fmt::format("the plug-in '{}' {}", job_.plugins.at(index_).value, did),
                             {},
                             false};
                break;
            case At::block:
                next_block_ = index_ + 1;
                explore_ = true;
                if (!made_up_) {
                    diagnostics_.error(entry().location, display_name(entry()) + " " + did);
                    ++probe_.not_mistakes;
                }
                break;
            case At::exploring:
                next_block_ = index_;
                explore_ = false;
                diagnostics_.warning(entry().location, display_name(entry()) + " " + did);
                break;
            case At::starting:
                fail_to_check("the check of the graph " +
                              common::misbehaviour(end, "its start", job_.limit));
                break;
            case At::end:
                break;
        }
    }

    void report_plugins() {
        for (std::size_t i = 0; i < unusable_.size(); ++i) {
            if (!unusable_[i])
                continue;
            probe_.not_mistakes += unusable_[i]->is_mistake ? 0U : 1U;
            diagnostics_.error(
                job_.plugins[i].location,
                unusable_[i]->text +
                    (is_type_missing_ ? "; unknown block types are not reported without it" : ""),
                unusable_[i]->help);
        }
    }

    const ProbeJob& job_;
    Diagnostics& diagnostics_;
    ProbeResult probe_;
    std::vector<std::optional<Unusable>> unusable_;
    std::vector<bool> lost_plugins_;            ///< the plug-ins that ended a child
    std::size_t next_block_ = 0;                ///< the first one still to be probed
    bool explore_ = true;                       ///< whether that one is to be explored
    std::set<std::string> spoilt_by_toggling_;  ///< types that ended a child with toggled booleans
    bool is_type_missing_ = false;
    std::size_t lost_ = 0;
    std::size_t hung_ = 0;

    At at_ = At::starting;
    std::size_t index_ = 0;  ///< of that plug-in or block
    Depth depth_ = Depth::build;
    std::string phase_;
    bool made_up_ = false;  ///< the block has been given a made-up value
};

/// Warns of objects that a bus connection takes from one block only.
void check_exports(const Graph& graph, const BlockReports& blocks, Diagnostics& diagnostics) {
    std::map<std::pair<std::string, std::string>, std::string> exporters;
    for (const BlockEntry& entry : graph.blocks) {
        for (const auto& object : blocks.at(entry.name).exports) {
            const auto& [path, interface] = object;
            const std::string what = fmt::format("'{}' at '{}'", interface, path);
            const std::string name = common::in_quotes(entry.name);
            if (sd_bus_object_path_is_valid(path.c_str()) <= 0 ||
                sd_bus_interface_name_is_valid(interface.c_str()) <= 0) {
                diagnostics.warning(entry.location,
                                    fmt::format("the block {} cannot export {}: the path or the "
                                                "interface name is not valid",
                                                name, what));
                continue;
            }
            const auto [first, is_new] = exporters.emplace(object, entry.name);
            if (!is_new && first->second == entry.name)
                diagnostics.warning(
                    entry.location,
                    fmt::format("the block {} exports {} twice; only the first one is reached",
                                name, what));
            else if (!is_new)
                diagnostics.warning(
                    entry.location,
                    fmt::format(
                        "the blocks {} and {} both export {}; only the first one is reached",
                        common::in_quotes(first->second), name, what));
        }
    }
}

/// The data files of the plug-ins that can be found; the others are reported by the probe.
TypeCatalog read_data_files(const ProbeJob& job, Diagnostics& diagnostics) {
    PluginLoader loader = job.types.make_loader(job.plugin_dirs, diagnostics.file());
    TypeCatalog catalog;
    for (const auto& plugin : job.plugins) {
        try {
            catalog.read(loader.find(plugin.value), diagnostics);
        } catch (const PluginError&) {
        }
    }
    return catalog;
}

}  // namespace

ProbeResult probe(const ProbeJob& job, Diagnostics& diagnostics) {
    if (job.plugins.empty() && job.blocks.empty())
        return {};
    return Prober(job, diagnostics).run();
}

void check_graph(const Graph& graph, const BlockReports& blocks, Diagnostics& diagnostics) {
    check_exports(graph, blocks, diagnostics);
    PortsByName ports;
    for (const auto& [name, block] : blocks)
        ports.emplace(name, block.ports);
    check_connections(graph, ports, diagnostics);
}

CheckedGraph read_and_check(const std::string& path, const std::vector<std::string>& plugin_dirs,
                            Diagnostics& diagnostics, Strictness strictness,
                            const BlockLook& look) {
    CheckedGraph checked{read_graph(path, diagnostics), {}, {}, ExitCode::misconfigured};
    if (!checked.graph)
        return checked;
    BlockTypes types(nullptr);
    ProbeJob job{types, checked.graph->plugins, plugin_dirs, {}, strictness, look};
    for (const BlockEntry& entry : checked.graph->blocks)
        job.blocks.push_back(&entry);
    checked.probe = probe(job, diagnostics);
    check_graph(*checked.graph, checked.probe.blocks, diagnostics);
    checked.types = read_data_files(job, diagnostics);
    check_types(*checked.graph, checked.probe.blocks, checked.types, diagnostics);
    // They give the exit code only where there is no mistake.
    if (diagnostics.errors() == 0)
        checked.code = ExitCode::done;
    else if (diagnostics.errors() == checked.probe.not_mistakes)
        checked.code = ExitCode::software;
    return checked;
}

}  // namespace host
