#include <sys/epoll.h>
#include <unistd.h>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/bus/bus.hpp"
#include "common/bus/callback.hpp"
#include "common/bus/out.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/terminal.hpp"
#include "framework/algo-tools/connection_tools.hpp"
#include "framework/shared/debug_data_store.hpp"
#include "framework/shared/log_sink.hpp"
#include "host/check/graph_checker.hpp"
#include "host/cli/options.hpp"
#include "host/control/reconfigurer.hpp"
#include "host/control/service.hpp"
#include "host/output/event_writer.hpp"
#include "host/output/journal.hpp"
#include "host/output/log_to_stderr.hpp"
#include "host/output/standard_streams.hpp"
#include "host/plugin/block_types.hpp"
#include "host/runtime/bus_interposer.hpp"
#include "host/runtime/crash_report.hpp"
#include "host/runtime/event_loop.hpp"
#include "host/runtime/running_graph.hpp"

namespace host {
namespace {

using common::ExitCode;

/// What `fenwa run` was asked for.
struct RunOptions {
    std::string graph;
    std::optional<std::string> bus;  ///< instead of the graph's own address
    std::vector<std::string> plugin_dirs;
    EventFormat format = EventFormat::text;
    std::optional<std::chrono::microseconds> duration;  ///< then stops as on SIGTERM
    std::chrono::microseconds call_timeout = std::chrono::seconds(25);
    std::optional<std::string> control;  ///< bus name of the control interface; none without it
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// How much longer than its time, which counts from the moment when all blocks are started, a host
/// takes when they do not start.
constexpr std::chrono::seconds start_limit{5};

/// How long a bus daemon has, at the end, to read what blocks have sent.
constexpr std::chrono::seconds delivery_limit{5};

/// Sends what blocks log and what they set in the debug-data store to the event writer.
class Listeners {
  public:
    explicit Listeners(EventWriter& events) {
        Fenwa::set_log_sink(
            [&events](int level, const std::string& message) { events.log(level, message); });
        Fenwa::set_debug_listener(
            [&events](const std::string& key, const Fenwa::DebugValue& value) {
                events.debug(key, value);
            });
    }
    Listeners(const Listeners&) = delete;
    Listeners& operator=(const Listeners&) = delete;
    ~Listeners() {
        Fenwa::set_debug_listener({});
        Fenwa::set_log_sink(log_to_stderr);
    }
};

/// Lets what becomes of stdout be known: to those who read it again, and to the host.
class OutputListeners {
  public:
    OutputListeners(StandardOutput& out, const EventWriter& events) {
        describe_dropped_output([&events](std::size_t lines) { return events.dropped(lines); });
        on_output_failure([&out](int error) { out.fail(error); });
    }
    OutputListeners(const OutputListeners&) = delete;
    OutputListeners& operator=(const OutputListeners&) = delete;
    ~OutputListeners() {
        describe_dropped_output({});
        on_output_failure({});
    }
};

common::BusPtr connect_bus(const RunOptions& options, const std::string& address) {
    const Activity connecting("the bus at", address.c_str(), nullptr);
    common::BusPtr bus = common::open_bus(address, options.call_timeout);
    common::check(sd_bus_set_method_call_timeout(
                      bus.get(), static_cast<std::uint64_t>(options.call_timeout.count())),
                  "cannot set the call time-out");
    return bus;
}

/// The connection of the blocks, with the names that the graph asks for.
common::BusPtr connect_blocks_bus(const RunOptions& options, const Graph& graph,
                                  const std::string& address) {
    common::BusPtr bus = connect_bus(options, address);
    const Activity owning("the bus at", address.c_str(), nullptr);
    for (const PlacedName& name : graph.bus_names)
        common::own_name(*bus, name.text);
    return bus;
}

/// Has the numbers of repeated log lines told when they are due. Null where they never are.
common::EventSourcePtr settle_repeated_lines(const EventLoop& loop, EventWriter& events) {
    common::EventSourcePtr source;
    if (const int fd = events.settle_descriptor(); fd >= 0)
        common::check(sd_event_add_io(&loop.get(), common::out(source), fd, EPOLLIN,
                                      common::callback<&EventWriter::settle>, &events),
                      "cannot watch for repeated log lines");
    return source;
}

/// Starts the blocks, serves them until the end and stops them.
ExitCode serve(const RunOptions& options, const Graph& graph, BlockTypes& types, EventLoop& loop,
               EventWriter& events, common::Diagnostics& diagnostics) {
    // Blocks do not wait for a reader, as a list of mistakes does.
    drop_unread_lines();
    const std::string address = options.bus.value_or(graph.bus_address.text);
    const common::BusPtr bus = connect_blocks_bus(options, graph, address);
    // Before a block touches the camera: a host whose name is taken does not start.
    common::BusPtr control_bus;
    if (options.control) {
        control_bus = connect_bus(options, address);
        common::own_name(*control_bus, *options.control);
    }
    loop.attach(*bus);
    const common::EventSourcePtr settling = settle_repeated_lines(loop, events);
    BusInterposer interposer(*bus);
    Fenwa::ConnectionTools connection(bus.get());
    const Fenwa::InitTools tools(&connection);
    const Listeners listeners(events);
    RunningGraph running(graph, types, tools, loop.get(), events, diagnostics);
    running.follow_bus(interposer);

    const auto failed = [&](const std::exception_ptr& failure) {
        try {
            std::rethrow_exception(failure);
        } catch (const Fenwa::ConfigurationError&) {
            diagnostics.print(std::cerr, common::use_color(options.color, stderr));
            return ExitCode::misconfigured;
        } catch (BlockFailure& error) {
            error.report().print(std::cerr, common::use_color(options.color, stderr));
            return ExitCode::software;
        } catch (const common::Failure& error) {
            common::print_error_line(std::string("fenwa: ") + error.what());
            return error.code();
        }
    };
    const std::size_t known = diagnostics.errors();
    ExitCode code = ExitCode::done;
    Reconfigurer settings(options.graph, running, types);
    std::optional<Control> control;
    try {
        const bool started = running.start([&loop] { return loop.interrupted(); });
        // Warnings too, of what only shows when the real blocks are there.
        diagnostics.print(std::cerr, common::use_color(options.color, stderr));
        if (started) {
            if (options.control)
                control.emplace(running, settings, loop, std::move(control_bus));
            loop.serve_hangup([&] { settings.reload(common::use_color(options.color, stderr)); });
            events.ready();
            loop.run(options.duration);
            if (running.failure() != nullptr)
                std::rethrow_exception(running.failure());
        } else if (diagnostics.errors() != known) {
            code = ExitCode::misconfigured;
        }
    } catch (...) {
        code = failed(std::current_exception());
    }
    EventLoop::announce_stop();
    running.stop([&](const std::exception_ptr& failure) {
        const ExitCode reported = failed(failure);
        if (code == ExitCode::done)
            code = reported;
    });
    if (loop.lost_bus())
        throw common::Failure(ExitCode::unavailable,
                              "lost the connection to the bus at '" + address + "'");
    const Activity finishing("the bus at", address.c_str(), nullptr);
    if (!loop.finish_sending(delivery_limit))
        common::print_error_line("fenwa: the bus at '" + address +
                                 "' has not read all that was sent to it");
    return code;
}

/// Runs a graph until a signal comes, its time is over, the bus is lost or a block throws.
/// @throws common::Failure
ExitCode run_graph(const RunOptions& options) {
    open_closed_streams();
    buffer_standard_streams();
    report_crashes();
    // From the first moment: a SIGHUP that comes during the start is served after it.
    Supervisor& supervisor = Supervisor::start(Supervisor::Hangup::reloads);
    const Journal journal(options.graph);
    common::Diagnostics diagnostics(options.graph);
    // The supervisor knows it to the end of the process.
    static StandardOutput& out = *new StandardOutput([&supervisor] { supervisor.request_stop(); });
    const std::unique_ptr<EventWriter> events =
        make_event_writer(options.format, out, journal, options.color);
    const OutputListeners output_listeners(out, *events);
    if (has_reader(STDOUT_FILENO) && !leads_to_journal(STDOUT_FILENO))
        supervisor.watch_reader(STDOUT_FILENO, [] { out.fail(EPIPE); });
    const auto ended = [&events](ExitCode code) {
        events->exit(static_cast<int>(code));
        drain_output();
        return code_after(out, code);
    };
    try {
        // While there is nothing to stop, a signal ends the host: the graph may be a pipe, and what
        // is tried out in the check may take its time.
        const CheckedGraph checked = read_and_check(options.graph, options.plugin_dirs, diagnostics,
                                                    Strictness::before_a_run);
        diagnostics.print(std::cerr, common::use_color(options.color, stderr));
        if (checked.code != ExitCode::done)
            return ended(checked.code);
        supervisor.stop_in_order();
        if (options.duration)
            supervisor.stop_after(*options.duration + start_limit);
        const ExitGuard guard;
        EventLoop loop(supervisor);
        BlockTypes types(&loop.get());
        types.load(*checked.graph, options.plugin_dirs, diagnostics);
        if (diagnostics.errors() != 0) {
            diagnostics.print(std::cerr, common::use_color(options.color, stderr));
            return ended(ExitCode::misconfigured);
        }
        if (loop.interrupted())
            return ended(ExitCode::done);
        return ended(serve(options, *checked.graph, types, loop, *events, diagnostics));
    } catch (const common::Failure& failure) {
        ended(failure.code());
        throw;
    } catch (...) {
        ended(ExitCode::software);
        throw;
    }
}

}  // namespace

Command add_run_command(CLI::App& program) {
    const auto options = std::make_shared<RunOptions>();
    CLI::App& run = add_command(program, "run", "Runs a graph until SIGINT or SIGTERM");
    add_graph(run, options->graph);
    add_plugin_dirs(run, options->plugin_dirs);
    add_color(run, options->color);
    run.add_option("--bus", options->bus,
                   "The bus: system, session or a D-Bus address, instead of the graph's own")
        ->type_name("ADDRESS");
    add_format(run, options->format);
    add_seconds(
        run, "--for", [options](std::chrono::microseconds time) { options->duration = time; },
        "Stops after this many seconds, as on SIGTERM");
    add_seconds(
        run, "--call-timeout",
        [options](std::chrono::microseconds time) { options->call_timeout = time; },
        "Longest wait for the bus and for a reply")
        .default_str("25");
    add_control_flag(run, options->control,
                     "Lets others read, write and watch ports and change settings over the bus, "
                     "under com.tarlo.Fenwa.Host1 or this name");
    return {&run, [options] { return run_graph(*options); }};
}

}  // namespace host
