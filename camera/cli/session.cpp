#include <fmt/format.h>
#include <poll.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "camera/bus/timers.hpp"
#include "camera/camera/camera.hpp"
#include "camera/camera/configuration.hpp"
#include "camera/camera/control.hpp"
#include "camera/cli/buffered_streams.hpp"
#include "camera/cli/bus_choice.hpp"
#include "camera/cli/session.hpp"
#include "camera/process/child.hpp"
#include "camera/process/keeper.hpp"
#include "camera/process/program_lines.hpp"
#include "camera/process/reaper.hpp"
#include "camera/scenario/player.hpp"
#include "camera/scenario/reader.hpp"
#include "camera/scenario/report.hpp"
#include "camera/service/event_log.hpp"
#include "common/bus/bus.hpp"
#include "common/bus/callback.hpp"
#include "common/bus/private_bus.hpp"
#include "common/events/standard_output.hpp"
#include "common/events/stopwatch.hpp"
#include "common/process/process_tree.hpp"
#include "common/text/diagnostics.hpp"

namespace camera {
namespace {

using common::check;
using common::ExitCode;
using common::Failure;

/// Whether the terminal on stdout was hung up, or its reader has gone.
bool stdout_is_gone() {
    pollfd out{STDOUT_FILENO, 0, 0};
    return poll(&out, 1, 0) == 1 && (out.revents & (POLLERR | POLLHUP)) != 0;
}

/// Kills what the camera has started, in case its keeper is gone.
struct ChildrenGuard {
    ~ChildrenGuard() { common::kill_children(); }
};

/// How long the services stay after the last program has ended.
constexpr std::chrono::milliseconds shutdown_grace{200};

/// One run of the camera, from reading the files to the last line.
class Session {
  public:
    Session(const RunOptions& options, const Keeper::Link& keeper)
        : options_(options),
          keeper_(keeper),
          event_(new_event()),
          out_([this] { on_output_failure(out_.error()); }),
          lines_(*event_, out_, options.color),
          event_log_(is_text() ? lines_.own() : out_, options.format, options.color,
                     options.timestamps, options.verbose ? Detail::all : Detail::story) {
        describe_dropped_lines([this](std::size_t lines) { return event_log_.unread(lines); });
    }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;
    ~Session() { describe_dropped_lines({}); }

    /// Reads the files and prints their mistakes. @returns false if there are any.
    bool prepare() {
        if (options_.report)
            report_.emplace(*options_.report);
        try {
            const bool right = read_files();
            if (!right)
                write_report("the configuration or the scenario has mistakes");
            return right;
        } catch (const Failure& failure) {
            write_report(failure.what());
            throw;
        }
    }

    ExitCode run() {
        try {
            play();
        } catch (const Failure& failure) {
            lines_.finish();
            event_log_.exit(failure.code());
            write_report(failure.what());
            throw;
        }
        const End end = end_.value_or(End{});
        event_log_.exit(end.code);
        write_report(end.sentence);
        if (!end.sentence.empty())
            throw Failure(end.code, end.sentence);
        return end.code;
    }

  private:
    /// Why the camera ends.
    struct End {
        ExitCode code = ExitCode::done;
        std::string sentence{};  ///< empty for an end that needs none
    };

    [[nodiscard]] bool is_text() const { return options_.format == common::EventFormat::text; }

    void write_report(const std::string& error) {
        if (report_)
            report_->write(error, event_log_.seconds());
    }

    bool read_files() {
        const bool color = common::use_color(options_.color, stderr);
        std::size_t mistakes = 0;
        Configuration configuration = default_configuration();
        if (options_.config) {
            common::Diagnostics diagnostics(*options_.config);
            configuration = read_configuration(*options_.config, diagnostics);
            diagnostics.print(std::cerr, color);
            mistakes += diagnostics.errors();
        }
        camera_ = std::make_unique<Camera>(*event_, event_log_, configuration, [this] { lost(); });
        if (options_.scenario) {
            common::Diagnostics diagnostics(*options_.scenario);
            scenario_ = read_scenario(*options_.scenario, *camera_, diagnostics);
            diagnostics.print(std::cerr, color);
            mistakes += diagnostics.errors();
            if (report_)
                report_->add(scenario_);
        }
        try {
            for (const std::string& service : options_.without)
                camera_->check_service(service);
        } catch (const CommandError& refusal) {
            throw Failure(ExitCode::usage, refusal.what());
        }
        return mistakes == 0;
    }

    void play() {
        catch_signals();
        watch_stdout();
        const std::string address = open_private_bus();
        // First, so that a second camera on a bus ends before it disturbs the first one.
        control_ = std::make_unique<Control>(*camera_, *event_, address, [this] { lost(); });
        place_.emplace(ProgramPlace{*reaper_, variables(address), is_text() ? &lines_ : nullptr});
        // Before the services: it answers calls in their place.
        if (options_.scenario)
            player_ = std::make_unique<ScenarioPlayer>(
                scenario_,
                ScenarioPlayer::Place{*camera_, event_log_, *event_, *place_,
                                      report_ ? &*report_ : nullptr},
                [this](ExitCode code, const std::string& sentence) { end(code, sentence); });
        camera_->go_up(address, presence(), control_->startable_names());
        std::vector<std::string> up;
        for (const auto& service : camera_->services()) {
            if (service->is_up())
                up.push_back(service->name());
        }
        event_log_.ready(address, up);
        keeper_.notify("READY=1\nSTATUS=Playing on " + common::one_line(address));
        start_children();
        if (player_ != nullptr && !end_)
            player_->start();
        const int status = check(sd_event_loop(event_.get()), "the event loop failed");
        lines_.finish();
        keeper_.notify("STOPPING=1");
        if (status == static_cast<int>(ExitCode::software))
            end(ExitCode::software, "ended by the internal error above");
        player_.reset();
        camera_->go_down();
    }

    /// What programs find in their environment.
    [[nodiscard]] std::vector<std::string> variables(const std::string& address) const {
        std::vector<std::string> variables{"DBUS_SYSTEM_BUS_ADDRESS=" + address};
        // Programs write to pipes, and cannot know whether the lines end in a terminal.
        if (options_.color == common::ColorChoice::never) {
            variables.emplace_back("NO_COLOR=1");
        } else if (is_text() && common::use_color(options_.color, stdout) &&
                   common::use_color(options_.color, stderr)) {
            variables.emplace_back("NO_COLOR=");
            variables.emplace_back("CLICOLOR_FORCE=1");
        }
        return variables;
    }

    [[nodiscard]] Camera::Presence presence() const {
        Camera::Presence presence{scenario_.down, {}};
        presence.down.insert(options_.without.begin(), options_.without.end());
        for (const auto& service : camera_->services()) {
            const bool left_out =
                std::ranges::find(options_.without, service->name()) != options_.without.end();
            const bool in_scenario =
                !scenario_.activatable || scenario_.activatable->contains(service->name());
            if (!options_.no_activation && !left_out && in_scenario)
                presence.activatable.insert(service->name());
        }
        return presence;
    }

    void start_children() {
        children_ = std::make_unique<Children>(
            *place_,
            [this](const std::string& program, int status) { child_exited(program, status); });
        try {
            children_->start(options_.children);
        } catch (const Failure& failure) {
            // The programs that run already end in order.
            end(failure.code(), failure.what());
        }
    }

    std::string open_private_bus() {
        if (!options_.private_bus)
            return options_.bus;
        common::PrivateBusOptions options;
        options.socket_path = options_.socket_path;
        options.camera_program = std::filesystem::read_symlink("/proc/self/exe").string();
        const std::set<std::string> activatable = presence().activatable;
        for (const auto& service : camera_->services()) {
            if (!activatable.contains(service->name()) || service->belongs_to_machine())
                continue;
            for (const std::string& bus_name : service->bus_names())
                options.activatable.push_back({bus_name, service->name()});
        }
        private_bus_ = std::make_unique<common::PrivateBus>(options);
        reaper_->leave(private_bus_->pid());
        return private_bus_->address();
    }

    void catch_signals() {
        const std::vector<int> signals = ending_signals();
        sigset_t set = set_of(signals);
        sigaddset(&set, SIGCHLD);
        sigprocmask(SIG_BLOCK, &set, nullptr);
        for (const int number : signals) {
            check(sd_event_add_signal(event_.get(), sources_.emplace_back().out(), number,
                                      common::callback<&Session::stop>, this),
                  "cannot serve signals");
        }
        reaper_ = std::make_unique<Reaper>(*event_, [this] { child_ended(); });
    }

    /// A reader that goes away, or a terminal that is closed, ends the camera even if it has
    /// nothing to write.
    void watch_stdout() {
        common::EventSourcePtr source;
        // Epoll always reports error and hang-up. A file, and /dev/null, has neither.
        const int r = sd_event_add_io(event_.get(), source.out(), STDOUT_FILENO, 0,
                                      common::callback<&Session::on_stdout_gone>, this);
        if (r == -EPERM)
            return;
        check(r, "cannot watch the standard output");
        sources_.push_back(std::move(source));
    }

    void on_stdout_gone(sd_event_source& source) {
        sd_event_source_set_enabled(&source, SD_EVENT_OFF);
        stop();
    }

    void stop() { end(ExitCode::done, {}); }

    void lost() { end(ExitCode::unavailable, "the connection to the bus was lost"); }

    void on_output_failure(int error) {
        // A reader that closes the pipe, as `head` does, has seen enough.
        if (error == EPIPE || stdout_is_gone())
            stop();
        else
            end(ExitCode::unavailable,
                fmt::format("cannot write to stdout: {}", std::strerror(error)));
    }

    /// Ends the loop; the first reason counts.
    void end(ExitCode code, const std::string& sentence) {
        if (end_)
            return;
        end_ = {code, sentence};
        // The programs still find the bus and the services while they stop.
        reaper_->end_children();
        if (!reaper_->any())
            sd_event_exit(event_.get(), 0);
    }

    void child_exited(const std::string& program, int status) {
        // The SIGTERM that asked it to end may have ended it.
        if (end_ && status == 128 + SIGTERM)
            status = 0;
        const std::string ended = fmt::format("'{}' ended with exit code {}", program, status);
        if (!end_ && status != 0) {
            end(ExitCode{status}, ended);
        } else if (!end_ && !children_->running()) {
            if (options_.scenario)
                end(ExitCode::expectation_failed, ended + ", before the scenario did");
            else
                end(ExitCode::done, {});
        } else if (end_ && end_->code == ExitCode::done && status != 0) {
            end_ = {ExitCode{status}, ended};
        }
    }

    void child_ended() {
        // The daemon may still hold their last messages to the services.
        if (end_ && !reaper_->any())
            shutdown_timer_.once(shutdown_grace, [this] { sd_event_exit(event_.get(), 0); });
    }

    const RunOptions& options_;
    const Keeper::Link& keeper_;
    // Destroyed from the last to the first: all connections are closed before the daemon ends.
    common::EventPtr event_;
    std::vector<common::EventSourcePtr> sources_;
    std::unique_ptr<common::PrivateBus> private_bus_;
    common::StandardOutput out_;
    ProgramLines lines_;
    EventLog event_log_;
    Scenario scenario_{};
    std::optional<Report> report_;
    std::unique_ptr<Camera> camera_;
    std::unique_ptr<Control> control_;
    std::unique_ptr<Reaper> reaper_;
    std::optional<ProgramPlace> place_;
    std::unique_ptr<ScenarioPlayer> player_;
    Timers shutdown_timer_{*event_};
    std::unique_ptr<Children> children_;
    std::optional<End> end_;
};

}  // namespace

ExitCode run_camera(const RunOptions& options) {
    if (!options.private_bus && !options.system_allowed &&
        is_machines_system_bus(options.bus, std::getenv("DBUS_SYSTEM_BUS_ADDRESS")))
        throw Failure(
            ExitCode::usage,
            "this would play on the machine's own system bus; use --private-bus for a bus "
            "of its own, --bus ADDRESS for another one, or --system if you mean it");
    Keeper keeper([&options] {
        common::remove_ownerless_folders();
        if (!options.socket_path.empty())
            common::remove_dead_socket(options.socket_path);
    });
    const std::optional<Keeper::Link> link = keeper.fork_camera();
    if (!link)
        return keeper.code();
    buffer_streams();
    const ChildrenGuard guard;
    // Programs count their seconds from this start too.
    static std::string start = common::Stopwatch().to_environment();
    putenv(start.data());
    Session session(options, *link);
    if (!session.prepare())
        return ExitCode::misconfigured;
    return session.run();
}

}  // namespace camera
