#include <fmt/core.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/bus/bus.hpp"
#include "common/bus/callback.hpp"
#include "common/cli/options.hpp"
#include "common/events/journal.hpp"
#include "common/events/message.hpp"
#include "common/events/standard_output.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/terminal.hpp"
#include "framework/algo-tools/connection_tools.hpp"
#include "framework/shared/debug_data_store.hpp"
#include "framework/shared/log_sink.hpp"
#include "host/check/graph_check.hpp"
#include "host/cli/event_options.hpp"
#include "host/cli/options.hpp"
#include "host/control/reconfigurer.hpp"
#include "host/control/service.hpp"
#include "host/output/activity.hpp"
#include "host/output/current_block.hpp"
#include "host/output/event_writer.hpp"
#include "host/output/log_to_stderr.hpp"
#include "host/output/standard_streams.hpp"
#include "host/plugin/block_types.hpp"
#include "host/runtime/bus_interposer.hpp"
#include "host/runtime/crash_report.hpp"
#include "host/runtime/event_loop.hpp"
#include "host/runtime/graph_status.hpp"
#include "host/runtime/running_graph.hpp"

namespace host {
namespace {

using common::ExitCode;

/// The command line of `fenwa run`.
struct RunOptions {
    std::string graph;
    std::filesystem::path graph_file;  ///< absolute: a block may change the working folder
    std::optional<std::string> bus;    ///< instead of the graph's own address
    std::vector<std::string> plugin_dirs;
    EventOptions lines;
    std::optional<std::chrono::microseconds> duration;  ///< then stops as on SIGTERM
    std::chrono::microseconds call_timeout = std::chrono::seconds(25);
    std::optional<std::string> control;  ///< bus name of the control interface; none without it
};

/// How long the blocks may take to start before the time of the run, which counts from then, ends
/// it all the same.
constexpr std::chrono::seconds start_limit{5};

/// After so long, a block that has published nothing is told of, with the reason.
constexpr std::chrono::microseconds silence_limit = std::chrono::seconds(5);

/// How long a bus daemon has, at the end, to read the blocks' messages.
constexpr std::chrono::seconds delivery_limit{5};

/// Sends log lines and debug data of blocks to the event writer.
class BlockListeners {
  public:
    /// @param blocks may be built later.
    BlockListeners(EventWriter& events, RunningGraph& blocks) {
        Fenwa::set_log_sink([&](int level, const std::string& message) {
            events.log(level, message);
            const std::string* const block = CurrentBlock::name();
            if (block != nullptr)
                blocks.logged(*block, level, message);
        });
        Fenwa::set_debug_listener(
            [&events](const std::string& key, const Fenwa::DebugValue& value) {
                events.debug(key, value);
            });
    }
    BlockListeners(const BlockListeners&) = delete;
    BlockListeners& operator=(const BlockListeners&) = delete;
    ~BlockListeners() {
        Fenwa::set_debug_listener({});
        Fenwa::set_log_sink(log_to_stderr);
    }
};

/// Stdout of a run: event lines, and what becomes of them if nobody reads.
class RunOutput {
  public:
    RunOutput(const RunOptions& options, Supervisor& supervisor)
        : out_(standard_output(supervisor)), events_(make_event_writer(options.lines, out_)) {
        describe_dropped_output([this](std::size_t lines) { return events_->dropped(lines); });
        on_output_failure([this](int error) { out_.fail(error); });
        if (common::has_reader(STDOUT_FILENO) && !common::leads_to_journal(STDOUT_FILENO))
            supervisor.watch_reader(STDOUT_FILENO, [&out = out_] { out.fail(EPIPE); });
    }
    RunOutput(const RunOutput&) = delete;
    RunOutput& operator=(const RunOutput&) = delete;
    ~RunOutput() {
        describe_dropped_output({});
        on_output_failure({});
    }

    [[nodiscard]] EventWriter& events() const noexcept { return *events_; }

    /// Writes the last event line and waits for the reader.
    /// @returns the exit code of the run, which a failure of stdout may change.
    ExitCode end(ExitCode code) {
        events_->exit(static_cast<int>(code));
        drain_output();
        return code_after(out_, code);
    }

  private:
    /// Lives until the process ends, because the supervisor does.
    static common::StandardOutput& standard_output(Supervisor& supervisor) {
        static auto* const out =
            new common::StandardOutput([&supervisor] { supervisor.request_stop(); });
        return *out;
    }

    common::StandardOutput& out_;
    const std::unique_ptr<EventWriter> events_;
};

/// The blocks of a checked graph on their bus: started, served until the end, and stopped.
class Session {
  public:
    /// All references outlive this object.
    /// @throws common::Failure (unavailable) without a bus, or if a name is taken.
    Session(const RunOptions& options, Graph graph, const TypeCatalog& catalog, BlockTypes& types,
            EventLoop& loop, EventWriter& events, common::Diagnostics& diagnostics)
        : options_(options),
          color_(common::use_color(options.lines.color, stderr)),
          diagnostics_(diagnostics),
          loop_(loop),
          events_(events),
          address_(options.bus.value_or(graph.bus_address.value)),
          bus_(connect_blocks_bus(graph)),
          control_bus_(connect_control_bus()),
          repeated_lines_(report_repeated_lines()),
          interposer_(*bus_),
          connection_(bus_.get()),
          tools_(&connection_),
          listeners_(events, blocks_),
          blocks_(std::move(graph), types, tools_, loop.get(), events, diagnostics),
          reconfigurer_(options.graph, options.graph_file, blocks_, types, catalog) {
        blocks_.follow_bus(interposer_);
    }

    /// @throws common::Failure (unavailable) if the bus was lost.
    ExitCode run() {
        ExitCode code = ExitCode::done;
        try {
            code = start_and_serve();
        } catch (...) {
            code = report(std::current_exception());
        }
        EventLoop::announce_stop();
        blocks_.stop([&](const std::exception_ptr& failure) {
            const ExitCode reported = report(failure);
            if (code == ExitCode::done)
                code = reported;
        });
        finish_sending();
        return code;
    }

  private:
    [[nodiscard]] common::BusPtr connect_bus() const {
        const Activity connecting("the bus at", address_.c_str(), nullptr);
        common::BusPtr bus = common::open_bus(address_, options_.call_timeout);
        common::check(sd_bus_set_method_call_timeout(
                          bus.get(), static_cast<std::uint64_t>(options_.call_timeout.count())),
                      "cannot set the call time-out");
        return bus;
    }

    /// Owns the names that the graph lists.
    [[nodiscard]] common::BusPtr connect_blocks_bus(const Graph& graph) const {
        common::BusPtr bus = connect_bus();
        const Activity owning("the bus at", address_.c_str(), nullptr);
        for (const auto& name : graph.bus_names)
            common::own_name(*bus, name.value);
        loop_.attach(*bus);
        return bus;
    }

    /// Before a block touches the camera: a host whose name is taken does not start. Null without
    /// a control interface.
    [[nodiscard]] common::BusPtr connect_control_bus() const {
        if (!options_.control)
            return nullptr;
        common::BusPtr bus = connect_bus();
        common::own_name(*bus, *options_.control);
        return bus;
    }

    /// Null if no counts of repeated log lines will be due.
    [[nodiscard]] common::EventSourcePtr report_repeated_lines() const {
        common::EventSourcePtr source;
        if (const int fd = events_.settle_descriptor(); fd >= 0)
            common::check(sd_event_add_io(&loop_.get(), source.out(), fd, EPOLLIN,
                                          common::callback<&EventWriter::settle>, &events_),
                          "cannot watch for repeated log lines");
        return source;
    }

    ExitCode start_and_serve() {
        const std::size_t known = diagnostics_.errors();
        const bool started = blocks_.start([this] { return loop_.interrupted(); });
        // Also for warnings that only the real blocks show.
        common::print_diagnostics(diagnostics_, color_);
        if (!started)
            return diagnostics_.errors() == known ? ExitCode::done : ExitCode::misconfigured;
        if (control_bus_ != nullptr)
            control_.emplace(blocks_, reconfigurer_, loop_, std::move(control_bus_));
        loop_.serve_hangup([this] { reconfigurer_.reload(color_); });
        watch_for_silence();
        events_.ready();
        loop_.serve_between_events([this] { return blocks_.run_ready_blocks(); });
        loop_.run(options_.duration);
        if (blocks_.failure() != nullptr)
            std::rethrow_exception(blocks_.failure());
        return ExitCode::done;
    }

    void watch_for_silence() {
        common::check(
            sd_event_add_time_relative(&loop_.get(), silence_.out(), CLOCK_MONOTONIC,
                                       static_cast<std::uint64_t>(silence_limit.count()), 0,
                                       common::callback<&Session::on_silence_limit>, this),
            "cannot make a timer");
    }

    void on_silence_limit() {
        names_.ask([this](const OwnedNames& names) {
            for (const auto& [block, reason] : silent_blocks(blocks_, names))
                common::print_message(
                    common::Severity::warning,
                    fmt::format("{} has published nothing in the first {} s: {}",
                                display_name(*blocks_.graph().find(block)),
                                std::chrono::duration<double>(silence_limit).count(), reason),
                    block);
        });
    }

    ExitCode report(const std::exception_ptr& failure) const {
        try {
            std::rethrow_exception(failure);
        } catch (const Fenwa::ConfigurationError&) {
            common::print_diagnostics(diagnostics_, color_);
            return ExitCode::misconfigured;
        } catch (BlockFailure& error) {
            common::print_diagnostics(error.report(), color_);
            return ExitCode::software;
        } catch (const common::Failure& error) {
            common::print_message(common::Severity::error, error.what());
            return error.code();
        }
    }

    void finish_sending() {
        if (loop_.lost_bus())
            throw common::Failure(ExitCode::unavailable,
                                  fmt::format("lost the connection to the bus at '{}'", address_));
        const Activity finishing("the bus at", address_.c_str(), nullptr);
        if (!loop_.finish_sending(delivery_limit))
            common::print_message(
                common::Severity::warning,
                fmt::format("the bus at '{}' has not read all that was sent to it", address_));
    }

    const RunOptions& options_;
    const bool color_;
    common::Diagnostics& diagnostics_;
    EventLoop& loop_;
    EventWriter& events_;
    const std::string address_;
    const common::BusPtr bus_;
    common::BusPtr control_bus_;  ///< null once `control_` has it
    const common::EventSourcePtr repeated_lines_;
    BusInterposer interposer_;
    Fenwa::ConnectionTools connection_;
    const Fenwa::InitTools tools_;
    const BlockListeners listeners_;
    RunningGraph blocks_;
    BusNames names_{*bus_};
    common::EventSourcePtr silence_;
    Reconfigurer reconfigurer_;
    std::optional<Control> control_;
};

/// Checks a graph and runs it until a signal comes, its time is over, the bus is lost or a block
/// throws. @throws common::Failure
ExitCode check_and_run(const RunOptions& options, Supervisor& supervisor, EventWriter& events) {
    common::Diagnostics diagnostics(options.graph);
    const bool color = common::use_color(options.lines.color, stderr);
    // A signal ends the host, as there is nothing to stop yet: the graph may be a pipe, and the
    // check may take its time.
    CheckedGraph checked =
        read_and_check(options.graph, options.plugin_dirs, diagnostics, Strictness::before_a_run);
    checked.probe = {};  // a run has no use for it, and may take years
    common::print_diagnostics(diagnostics, color);
    if (checked.code != ExitCode::done)
        return checked.code;
    supervisor.stop_in_order();
    if (options.duration)
        supervisor.stop_after(*options.duration + start_limit);
    const ExitGuard guard;
    EventLoop loop(supervisor);
    BlockTypes types(&loop.get());
    const std::size_t not_mistakes = types.load(*checked.graph, options.plugin_dirs, diagnostics);
    {
        const Activity loading("a plug-in", "", "its loading or its entry point");
        end_without_descriptors();
    }
    common::print_diagnostics(diagnostics, color);
    if (diagnostics.errors() != 0)
        return diagnostics.errors() == not_mistakes ? ExitCode::software : ExitCode::misconfigured;
    if (loop.interrupted())
        return ExitCode::done;
    // Blocks do not wait for a reader of stderr, as a list of mistakes does.
    drop_unread_lines();
    return Session(options, *std::move(checked.graph), checked.types, types, loop, events,
                   diagnostics)
        .run();
}

ExitCode run_graph(const RunOptions& options) {
    common::set_journal_graph(options.graph);
    buffer_standard_streams();
    report_crashes();
    // From the first moment: a SIGHUP that comes during the start is served after it.
    Supervisor& supervisor = Supervisor::start(Supervisor::Hangup::reloads);
    RunOutput output(options, supervisor);
    try {
        return output.end(check_and_run(options, supervisor, output.events()));
    } catch (const common::Failure& failure) {
        output.end(failure.code());
        throw;
    } catch (...) {
        output.end(ExitCode::software);
        throw;
    }
}

}  // namespace

common::Command run_command() {
    const auto options = std::make_shared<RunOptions>();
    std::vector<common::Option> all{
        plugin_dir_option(options->plugin_dirs),
        common::bus_option("The bus instead of the graph's own", options->bus)};
    for (const auto& of_lines : {line_options(options->lines), filter_options(options->lines)})
        all.insert(all.end(), of_lines.begin(), of_lines.end());
    all.push_back({.name = "--for",
                   .value = "SECONDS",
                   .help = "Stops after this many seconds, as on SIGTERM",
                   .take = common::into(options->duration)});
    all.push_back({.name = "--call-timeout",
                   .value = "SECONDS",
                   .help = "Longest wait for the bus and for a reply",
                   .default_text = "25",
                   .take = common::into(options->call_timeout)});
    all.push_back(control_flag(options->control,
                               "Lets others read, write and watch ports and change settings over "
                               "the bus, under com.tarlo.Fenwa.Host1 or this name"));
    return {.name = "run",
            .help = "Runs a graph until SIGINT or SIGTERM",
            .arguments = {graph_argument(options->graph)},
            .options = std::move(all),
            .run = [options] {
                std::error_code ignored;  // a folder that was removed: the path leads nowhere
                options->graph_file = std::filesystem::absolute(options->graph, ignored);
                return run_graph(*options);
            }};
}

}  // namespace host
