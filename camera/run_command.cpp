#include "camera/run_command.hpp"

#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>

#include "camera/bus_choice.hpp"
#include "camera/camera.hpp"
#include "camera/configuration.hpp"
#include "camera/control.hpp"
#include "camera/guests.hpp"
#include "camera/private_bus.hpp"
#include "camera/scenario_player.hpp"
#include "camera/scenario_reader.hpp"
#include "camera/timers.hpp"
#include "camera/trampoline.hpp"
#include "common/bus.hpp"
#include "common/diagnostics.hpp"

namespace camera {
namespace {

using tool::check;
using tool::ExitCode;
using tool::Failure;

tool::EventPtr new_event() {
    sd_event* event = nullptr;
    check(sd_event_new(&event), "sd_event_new");
    return tool::EventPtr(event);
}

/// The signals that end a camera. SIGHUP is left alone where it is ignored: that is what `nohup`
/// is for.
std::vector<int> ending_signals() {
    std::vector<int> signals = {SIGINT, SIGTERM};
    struct sigaction hangup {};
    if (sigaction(SIGHUP, nullptr, &hangup) == 0 && hangup.sa_handler != SIG_IGN)
        signals.push_back(SIGHUP);
    return signals;
}

sigset_t set_of(const std::vector<int>& signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : signals)
        sigaddset(&set, number);
    return set;
}

/// How long the services stay when the last guest has gone.
constexpr std::chrono::milliseconds farewell_time{200};

/// One run of the camera, from reading the files to the last line.
class Session {
  public:
    explicit Session(const RunOptions& options)
        : options_(options),
          event_(new_event()),
          story_(stdout, options.format, tool::use_color(options.color, stdout),
                 [this](int error) { stdout_broken(error); }) {}

    /// Reads the files; false when they have mistakes, which are printed then.
    bool prepare() {
        const bool color = tool::use_color(options_.color, stderr);
        std::size_t mistakes = 0;
        Configuration configuration = default_configuration();
        if (options_.config) {
            tool::Diagnostics diagnostics(*options_.config);
            configuration = read_configuration(*options_.config, diagnostics);
            diagnostics.print(std::cerr, color);
            mistakes += diagnostics.errors();
        }
        camera_ = std::make_unique<Camera>(*event_, story_, configuration, [this] { lost(); });
        if (options_.scenario) {
            tool::Diagnostics diagnostics(*options_.scenario);
            scenario_ = read_scenario(*options_.scenario, *camera_, diagnostics);
            diagnostics.print(std::cerr, color);
            mistakes += diagnostics.errors();
        }
        try {
            for (const std::string& service : options_.without)
                camera_->check_service(service);
        } catch (const Refusal& refusal) {
            throw Failure(ExitCode::usage, refusal.what());
        }
        return mistakes == 0;
    }

    ExitCode run() {
        try {
            play();
        } catch (const Failure& failure) {
            story_.exit(failure.code());
            throw;
        }
        story_.exit(code_);
        if (!sentence_.empty())
            throw Failure(code_, sentence_);
        return code_;
    }

  private:
    void play() {
        catch_signals();
        const std::string address = open_private_bus();
        // First, so that a second camera on a bus ends before it gets into the first one's way.
        control_ = std::make_unique<Control>(*camera_, *event_, address, [this] { lost(); });
        camera_->go_up(address, {options_.without.begin(), options_.without.end()},
                       options_.activation);
        std::vector<std::string> up;
        for (const auto& service : camera_->services()) {
            if (service->is_up())
                up.push_back(service->name());
        }
        story_.ready(address, up);
        sd_notifyf(0, "READY=1\nSTATUS=Playing on %s", tool::one_line(address).c_str());
        start_guests(address);
        if (options_.scenario && !ended_) {
            player_ = std::make_unique<ScenarioPlayer>(
                scenario_, *camera_, story_, *event_,
                [this](ExitCode code, const std::string& sentence) { end(code, sentence); });
            player_->start();
        }
        const int status = check(sd_event_loop(event_.get()), "sd_event_loop");
        sd_notify(0, "STOPPING=1");
        if (status == static_cast<int>(ExitCode::threw))
            end(ExitCode::threw, "ended by the internal error above");
        player_.reset();
        camera_->go_down();
    }

    void start_guests(const std::string& address) {
        try {
            for (const std::vector<std::string>& command : options_.guests)
                guests_.start(command, address);
        } catch (const Failure& failure) {
            // Those that run already are to end in peace.
            end(failure.code(), failure.what());
        }
    }

    std::string open_private_bus() {
        if (!options_.private_bus)
            return options_.bus;
        PrivateBusOptions options;
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
        private_bus_ = std::make_unique<PrivateBus>(options);
        return private_bus_->address();
    }

    void catch_signals() {
        // A reader of our lines that goes away is noticed when the next line is written.
        std::signal(SIGPIPE, SIG_IGN);
        const std::vector<int> signals = ending_signals();
        sigset_t set = set_of(signals);
        sigaddset(&set, SIGCHLD);  // for the end of guests
        sigprocmask(SIG_BLOCK, &set, nullptr);
        for (const int number : signals) {
            sd_event_source* source = nullptr;
            check(sd_event_add_signal(event_.get(), &source, number,
                                      Trampoline<&Session::on_signal>::event, this),
                  "sd_event_add_signal");
            signals_.emplace_back(source);
        }
    }

    void on_signal() {
        end(ExitCode::done, {});
        // A second one during the stop ends the process at once, even where a shell that started
        // us in the background has had SIGINT ignored.
        const std::vector<int> signals = {SIGINT, SIGTERM};
        for (const int number : signals)
            std::signal(number, SIG_DFL);
        const sigset_t set = set_of(signals);
        sigprocmask(SIG_UNBLOCK, &set, nullptr);
    }

    void lost() { end(ExitCode::unavailable, "the connection to the bus was lost"); }

    void stdout_broken(int error) {
        // Whoever closed the pipe (`| head`) has seen enough.
        if (error == EPIPE)
            end(ExitCode::done, {});
        else
            end(ExitCode::threw,
                std::string("cannot write to the standard output: ") + std::strerror(error));
    }

    /// Ends the loop; the first reason counts.
    void end(ExitCode code, const std::string& sentence) {
        if (std::exchange(ended_, true))
            return;
        code_ = code;
        sentence_ = sentence;
        // The guests still find the bus and the services while they stop.
        guests_.ask_to_end();
        if (!guests_.running())
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
        } else if (!ended_ && !guests_.running()) {
            if (options_.scenario)
                end(ExitCode::expectation_failed, ended + ", before the scenario did");
            else
                end(ExitCode::done, {});
        } else if (ended_ && code_ == ExitCode::done && status != 0) {
            code_ = ExitCode{status};
            sentence_ = ended;
        }
        // What they said last is still with the daemon: the services are to hear it.
        if (ended_ && !guests_.running())
            farewell_.once(farewell_time, [this] { sd_event_exit(event_.get(), 0); });
    }

    const RunOptions& options_;
    // Destroyed from the last to the first: all connections are closed before the daemon ends.
    tool::EventPtr event_;
    std::vector<tool::EventSourcePtr> signals_;
    std::unique_ptr<PrivateBus> private_bus_;
    Story story_;
    Scenario scenario_;
    std::unique_ptr<Camera> camera_;
    std::unique_ptr<Control> control_;
    std::unique_ptr<ScenarioPlayer> player_;
    Timers farewell_{*event_};
    Guests guests_{
        *event_, [this](const std::string& program, int status) { guest_ended(program, status); }};
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
    Session session(options);
    if (!session.prepare())
        return ExitCode::misconfigured;
    return session.run();
}

}  // namespace camera
