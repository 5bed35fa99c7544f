#include "camera/cli/run.hpp"

#include <poll.h>
#include <systemd/sd-event.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>

#include "camera/bus/timers.hpp"
#include "camera/camera/camera.hpp"
#include "camera/camera/configuration.hpp"
#include "camera/camera/control.hpp"
#include "camera/cli/bus_choice.hpp"
#include "camera/process/children.hpp"
#include "camera/process/keeper.hpp"
#include "camera/process/reaper.hpp"
#include "camera/process/stop_signals.hpp"
#include "camera/scenario/player.hpp"
#include "camera/scenario/reader.hpp"
#include "common/bus/bus.hpp"
#include "common/bus/callback.hpp"
#include "common/bus/out.hpp"
#include "common/bus/private_bus.hpp"
#include "common/process/process_tree.hpp"
#include "common/text/diagnostics.hpp"

namespace camera {
namespace {

using common::check;
using common::ExitCode;
using common::Failure;

common::EventPtr new_event() {
    common::EventPtr event;
    check(sd_event_new(common::out(event)), "sd_event_new");
    return event;
}

/// Whether the terminal on stdout was hung up, or its reader has gone.
bool stdout_is_gone() {
    pollfd out{STDOUT_FILENO, 0, 0};
    return poll(&out, 1, 0) == 1 && (out.revents & (POLLERR | POLLHUP)) != 0;
}

/// Lets nothing that was started outlive the camera, should its keeper not be there any more.
struct EndOfAll {
    ~EndOfAll() { common::kill_children(); }
};

/// How long the services stay when the last program has gone.
constexpr std::chrono::milliseconds shutdown_grace{200};

/// One run of the camera, from reading the files to the last line.
class Session {
  public:
    Session(const RunOptions& options, const Keeper::Link& keeper)
        : options_(options),
          keeper_(keeper),
          event_(new_event()),
          event_log_(stdout, options.format, common::use_color(options.color, stdout),
                     [this](int error) { stdout_broken(error); }) {}

    /// Reads the files; false when they have mistakes, which are printed then.
    bool prepare() {
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
        }
        try {
            for (const std::string& service : options_.without)
                camera_->check_service(service);
        } catch (const CommandError& refusal) {
            throw Failure(ExitCode::usage, refusal.what());
        }
        return mistakes == 0;
    }

    ExitCode run() {
        try {
            play();
        } catch (const Failure& failure) {
            event_log_.exit(failure.code());
            throw;
        }
        event_log_.exit(code_);
        if (!sentence_.empty())
            throw Failure(code_, sentence_);
        return code_;
    }

  private:
    void play() {
        catch_signals();
        watch_stdout();
        const std::string address = open_private_bus();
        // First, so that a second camera on a bus ends before it gets into the first one's way.
        control_ = std::make_unique<Control>(*camera_, *event_, address, [this] { lost(); });
        camera_->go_up(address, {options_.without.begin(), options_.without.end()},
                       options_.activation, control_->startable_names());
        std::vector<std::string> up;
        for (const auto& service : camera_->services()) {
            if (service->is_up())
                up.push_back(service->name());
        }
        event_log_.ready(address, up);
        keeper_.notify("READY=1\nSTATUS=Playing on " + common::one_line(address));
        start_guests(address);
        if (options_.scenario && !ended_) {
            player_ = std::make_unique<ScenarioPlayer>(
                scenario_, *camera_, event_log_, *event_, *reaper_,
                [this](ExitCode code, const std::string& sentence) { end(code, sentence); });
            player_->start();
        }
        const int status = check(sd_event_loop(event_.get()), "sd_event_loop");
        keeper_.notify("STOPPING=1");
        if (status == static_cast<int>(ExitCode::software))
            end(ExitCode::software, "ended by the internal error above");
        player_.reset();
        camera_->go_down();
    }

    void start_guests(const std::string& address) {
        try {
            for (const std::vector<std::string>& command : options_.children)
                children_->start(command, address);
        } catch (const Failure& failure) {
            // Those that run already are to end in peace.
            end(failure.code(), failure.what());
        }
    }

    std::string open_private_bus() {
        if (!options_.private_bus)
            return options_.bus;
        common::PrivateBusOptions options;
        options.socket_path = options_.socket_path;
        if (options_.activation) {
            options.camera_program = std::filesystem::read_symlink("/proc/self/exe").string();
            const std::set<std::string> without(options_.without.begin(), options_.without.end());
            for (const auto& service : camera_->services()) {
                if (without.contains(service->name()) || service->belongs_to_machine())
                    continue;
                for (const std::string& bus_name : service->bus_names())
                    options.activatable.push_back({bus_name, service->name()});
            }
        }
        private_bus_ = std::make_unique<common::PrivateBus>(options);
        reaper_->leave(private_bus_->pid());
        return private_bus_->address();
    }

    void catch_signals() {
        // A reader of our lines that goes away is noticed when the next line is written.
        std::signal(SIGPIPE, SIG_IGN);
        const std::vector<int> signals = ending_signals();
        sigset_t set = set_of(signals);
        sigaddset(&set, SIGCHLD);
        sigprocmask(SIG_BLOCK, &set, nullptr);
        for (const int number : signals) {
            check(sd_event_add_signal(event_.get(), common::out(sources_.emplace_back()), number,
                                      common::callback<&Session::stop>, this),
                  "sd_event_add_signal");
        }
        reaper_ = std::make_unique<Reaper>(*event_, [this] { child_ended(); });
        children_ = std::make_unique<Children>(
            *reaper_,
            [this](const std::string& program, int status) { guest_ended(program, status); });
    }

    /// A reader that goes away, or a terminal that is closed, ends the camera even where there is
    /// nothing to be told.
    void watch_stdout() {
        common::EventSourcePtr source;
        // Error and hang-up are reported unasked. What is no pipe, socket or terminal has neither.
        const int r = sd_event_add_io(event_.get(), common::out(source), STDOUT_FILENO, 0,
                                      common::callback<&Session::on_stdout_gone>, this);
        if (r == -EPERM || r == -EBADF)
            return;
        check(r, "sd_event_add_io");
        sources_.push_back(std::move(source));
    }

    void on_stdout_gone(sd_event_source& source) {
        sd_event_source_set_enabled(&source, SD_EVENT_OFF);
        stop();
    }

    void stop() { end(ExitCode::done, {}); }

    void lost() { end(ExitCode::unavailable, "the connection to the bus was lost"); }

    void stdout_broken(int error) {
        // Whoever closed the pipe (`| head`) has seen enough.
        if (error == EPIPE || stdout_is_gone())
            stop();
        else
            end(ExitCode::unavailable,
                std::string("cannot write to stdout: ") + std::strerror(error));
    }

    /// Ends the loop; the first reason counts.
    void end(ExitCode code, const std::string& sentence) {
        if (std::exchange(ended_, true))
            return;
        code_ = code;
        sentence_ = sentence;
        // The programs still find the bus and the services while they stop.
        reaper_->ask_to_end();
        if (!reaper_->any())
            sd_event_exit(event_.get(), 0);
    }

    void guest_ended(const std::string& program, int status) {
        // Whoever lets the SIGTERM end it that was to end it has done what was asked for.
        if (ended_ && status == 128 + SIGTERM)
            status = 0;
        const std::string ended =
            "'" + program + "' ended with exit code " + std::to_string(status);
        if (!ended_ && status != 0) {
            end(ExitCode{status}, ended);
        } else if (!ended_ && !children_->running()) {
            if (options_.scenario)
                end(ExitCode::expectation_failed, ended + ", before the scenario did");
            else
                end(ExitCode::done, {});
        } else if (ended_ && code_ == ExitCode::done && status != 0) {
            code_ = ExitCode{status};
            sentence_ = ended;
        }
    }

    void child_ended() {
        // What they said last is still with the daemon: the services are to hear it.
        if (ended_ && !reaper_->any())
            farewell_.once(shutdown_grace, [this] { sd_event_exit(event_.get(), 0); });
    }

    const RunOptions& options_;
    const Keeper::Link& keeper_;
    // Destroyed from the last to the first: all connections are closed before the daemon ends.
    common::EventPtr event_;
    std::vector<common::EventSourcePtr> sources_;
    std::unique_ptr<common::PrivateBus> private_bus_;
    EventLog event_log_;
    Scenario scenario_;
    std::unique_ptr<Camera> camera_;
    std::unique_ptr<Control> control_;
    std::unique_ptr<Reaper> reaper_;
    std::unique_ptr<ScenarioPlayer> player_;
    Timers farewell_{*event_};
    std::unique_ptr<Children> children_;
    bool ended_ = false;
    ExitCode code_ = ExitCode::done;
    std::string sentence_;
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
    const EndOfAll end_of_all;
    Session session(options, *link);
    if (!session.prepare())
        return ExitCode::misconfigured;
    return session.run();
}

}  // namespace camera
