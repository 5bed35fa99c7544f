#include "host/check/graph_probe.hpp"

#include <exception>
#include <optional>

#include "common/process/child_process.hpp"
#include "framework/shared/host_access.hpp"
#include "framework/shared/port_watch.hpp"
#include "framework/shared/thread_silence.hpp"
#include "host/output/activity.hpp"
#include "host/plugin/loader.hpp"

namespace host {
namespace {

using common::Diagnostics;
using common::Json;

/// After so many children that were lost, and so many of them that hung, nothing more is tried.
constexpr std::size_t most_lost = 16;
constexpr std::size_t most_hung = 3;

// What children send: arrays, one a line, that begin with one of these words.
namespace word {

constexpr const char* plugin = "plugin";      // INDEX: is loaded now
constexpr const char* unusable = "unusable";  // INDEX, TEXT, HELP, THREW
constexpr const char* block = "block";        // INDEX: is probed now
constexpr const char* phase = "phase";        // TEXT, EXPLORING: begins now
constexpr const char* invented = "invented";  // the block lives on a made-up value from here on
constexpr const char* missing = "missing";    // its type may be of a plug-in that is missing
constexpr const char* input = "input";        // NAME, DATATYPE: has been added
constexpr const char* output = "output";      // NAME, DATATYPE
constexpr const char* built = "built";        // NAMES and DATATYPES of terminated inputs, EXPORTS
constexpr const char* look = "look";          // whatever was asked for
constexpr const char* threw = "threw";        // and that was reported
constexpr const char* diagnostic = "diagnostic";  // SEVERITY, LINE, COLUMN, TEXT, HELP
constexpr const char* more = "more";              // ERRORS, WARNINGS that are not kept
constexpr const char* end = "end";                // nothing more will come

}  // namespace word

/// The child's part.
class Worker {
  public:
    Worker(const ProbeJob& job, Diagnostics& diagnostics, const common::LineSender& send_line)
        : job_(job), diagnostics_(diagnostics), send_line_(send_line) {
        Fenwa::ThreadSilence::of_whole_process();
        diagnostics_.listen([this](const Diagnostics::Entry& entry) {
            send({word::diagnostic, entry.severity == Diagnostics::Severity::error,
                  entry.location.line, entry.location.column, entry.text, entry.help});
        });
    }

    /// @param lost plug-ins that are not to be loaded.
    void load_plugins(const std::vector<bool>& lost) {
        PluginLoader loader = job_.types.make_loader(job_.plugin_dirs, diagnostics_.file());
        for (std::size_t i = 0; i < job_.plugins.size(); ++i) {
            if (lost[i]) {
                job_.types.set_incomplete();
                continue;
            }
            send({word::plugin, i});
            try {
                loader.load(job_.plugins[i].text);
            } catch (const PluginError& error) {
                job_.types.set_incomplete();
                send({word::unusable, i, error.what(), error.help(), error.thrown().has_value()});
            }
        }
    }

    void probe_block(std::size_t i, bool explore) {
        send({word::block, i});
        const BlockEntry& entry = *job_.blocks[i];
        if (job_.types.may_be_missing(entry))
            send({word::missing});
        Probe dry(entry, job_.types, diagnostics_, job_.strictness, progress());
        if (build(dry)) {
            send_built(dry);
            if (explore)
                dry.find_unread_keys();
            if (job_.look)
                send({word::look, job_.look(dry)});
            dry.destroy();
        } else if (dry.threw()) {
            send({word::threw});
        }
        send_more();
    }

    void end() const { send({word::end}); }

  private:
    void send(const Json& message) const { send_line_(common::json_line(message)); }

    DryProgress progress() {
        return {[this](const char* phase, bool exploring) {
                    send({word::phase, phase, exploring});
                },
                [this, sent = false]() mutable {
                    if (!std::exchange(sent, true))
                        send({word::invented});
                }};
    }

    bool build(Probe& dry) {
        const Fenwa::PortWatch watch(
            [this](const Fenwa::InPortInternal& port) {
                send({word::input, port.name(), port.datatype().path()});
            },
            [this](const Fenwa::OutPortInternal& port) {
                send({word::output, port.name(), port.datatype().path()});
            });
        return dry.build();
    }

    void send_built(const Probe& dry) const {
        const ConnectableBlock block = dry.block();
        Json terminated = Json::array();
        for (const std::string& name : block.terminations->names())
            terminated.push_back({name, block.terminations->find(name)->datatype().path()});
        Json exports = Json::array();
        for (const auto& [path, interface] : Fenwa::HostAccess::exported_objects(*block.block))
            exports.push_back({path, interface});
        send({word::built, std::move(terminated), std::move(exports)});
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
    const Fenwa::ThreadSilence silence_;
    std::size_t errors_not_kept_ = diagnostics_.not_kept(Diagnostics::Severity::error);
    std::size_t warnings_not_kept_ = diagnostics_.not_kept(Diagnostics::Severity::warning);
};

/// The parent's part: children until all is probed.
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
        while (!run_child()) {
            if (lost_ == most_lost || hung_ == most_hung) {
                diagnostics_.error({},
                                   "the rest of the graph is not checked, because too much of it "
                                   "has crashed or hung");
                break;
            }
        }
        report_plugins();
        return std::move(probe_);
    }

  private:
    struct Unusable {
        std::string text;
        std::string help;
        bool threw;
    };

    /// @returns whether nothing is left to do.
    bool run_child() {
        const Activity waiting("a child process that tries blocks out", "", nullptr);
        at_ = At::nothing;
        phase_ = "its entry point";
        const common::ChildEnd end = common::run_in_child(
            [this](const common::LineSender& send) { work(send); }, job_.limit,
            [this](const std::string& line) { return receive(Json::parse(line, nullptr, false)); });
        if (at_ == At::end)
            return true;
        lose(end);
        return false;
    }

    void work(const common::LineSender& send) {
        Worker worker(job_, diagnostics_, send);
        worker.load_plugins(lost_plugins_);
        for (std::size_t i = next_block_; i < job_.blocks.size(); ++i)
            worker.probe_block(i, i != next_block_ || explore_);
        worker.end();
    }

    /// @returns whether something begins that has a time of its own.
    bool receive(const Json& message) {
        try {
            // Something else was written by somebody else.
            return message.is_array() && take(message.at(0).get<std::string>(), message);
        } catch (const std::exception&) {
            return false;
        }
    }

    bool take(const std::string& word, const Json& message) {
        if (word == word::phase) {
            phase_ = message.at(1);
            exploring_ = message.at(2);
            return true;
        }
        if (word == word::plugin || word == word::block) {
            const bool is_plugin = word == word::plugin;
            index_ = message.at(1);
            at_ = is_plugin ? At::plugin : At::block;
            invented_ = exploring_ = false;
            if (!is_plugin)
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
            block().look = message.at(1);
        else if (word == word::invented)
            invented_ = true;
        else if (word == word::missing)
            is_type_missing_ = true;
        else if (word == word::threw)
            ++probe_.throws;
        else if (word == word::unusable)
            unusable_.at(message.at(1)) = Unusable{message.at(2), message.at(3), message.at(4)};
        else if (word == word::end)
            at_ = At::end;
        return false;
    }

    static Fenwa::PortInfo port(const Json& message) {
        return {message.at(1), Fenwa::Datatype(message.at(2).get<std::string>())};
    }

    void take_built(const Json& message) {
        for (const Json& input : message.at(1))
            block().ports.inputs.push_back(
                {input.at(0), Fenwa::Datatype(input.at(1).get<std::string>())});
        for (const Json& object : message.at(2))
            block().exports.emplace_back(object.at(0), object.at(1));
        block().ports.complete = true;
    }

    void count_more(std::size_t errors, std::size_t warnings) {
        diagnostics_.count_more(Diagnostics::Severity::error, errors);
        diagnostics_.count_more(Diagnostics::Severity::warning, warnings);
    }

    [[nodiscard]] const BlockEntry& entry() const { return *job_.blocks.at(index_); }
    [[nodiscard]] BlockReport& block() { return probe_.blocks.at(entry().name); }

    /// A child did not come to its end.
    void lose(const common::ChildEnd& end) {
        ++lost_;
        hung_ += end.timed_out ? 1U : 0U;
        const std::string did = common::misbehaviour(end, phase_, job_.limit);
        switch (at_) {
            case At::plugin:
                lost_plugins_.at(index_) = true;
                unusable_.at(index_) =
                    Unusable{"the plug-in '" + job_.plugins.at(index_).text + "' " + did, {}, true};
                break;
            case At::block:
                lose_block(describe(entry()) + " " + did);
                break;
            case At::nothing:
            case At::end:
                lost_ = most_lost;  // it could not even begin
                break;
        }
    }

    void lose_block(const std::string& sentence) {
        explore_ = !exploring_;
        next_block_ = index_ + (exploring_ ? 0U : 1U);
        if (exploring_) {
            diagnostics_.warning(entry().location, sentence);
        } else if (!invented_) {
            diagnostics_.error(entry().location, sentence);
            ++probe_.throws;
        }
    }

    void report_plugins() {
        for (std::size_t i = 0; i < unusable_.size(); ++i) {
            if (!unusable_[i])
                continue;
            probe_.throws += unusable_[i]->threw ? 1U : 0U;
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
    std::vector<bool> lost_plugins_;  ///< those that took a child with them
    std::size_t next_block_ = 0;      ///< the first one that is still to be probed
    bool explore_ = true;             ///< whether that one is to be looked at further
    bool is_type_missing_ = false;
    std::size_t lost_ = 0;
    std::size_t hung_ = 0;

    // What the child is at.
    enum class At { nothing, plugin, block, end };
    At at_ = At::nothing;
    std::size_t index_ = 0;
    std::string phase_;
    bool exploring_ = false;
    bool invented_ = false;
};

}  // namespace

ProbeResult probe(const ProbeJob& job, common::Diagnostics& diagnostics) {
    return Prober(job, diagnostics).run();
}

}  // namespace host
