#include <fmt/format.h>
#include <systemd/sd-event.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <exception>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "camera/bus/message_json.hpp"
#include "camera/bus/timers.hpp"
#include "camera/camera/camera.hpp"
#include "camera/camera/configuration.hpp"
#include "camera/cli/commands.hpp"
#include "camera/process/keeper.hpp"
#include "camera/recorder/recorder.hpp"
#include "camera/recorder/recording_file.hpp"
#include "camera/recorder/toml_text.hpp"
#include "camera/service/connection.hpp"
#include "common/bus/bus.hpp"
#include "common/bus/callback.hpp"
#include "common/cli/options.hpp"
#include "common/events/message.hpp"
#include "common/text/diagnostics.hpp"
#include "common/text/line_text.hpp"

namespace camera {
namespace {

using common::check;
using common::ExitCode;
using common::Failure;

constexpr const char* daemon_name = "org.freedesktop.DBus";
constexpr const char* daemon_path = "/org/freedesktop/DBus";

constexpr std::chrono::milliseconds settle_time{50};

struct RecordOptions {
    std::string bus = "system";
    std::string file;
    std::optional<std::chrono::microseconds> time;  ///< nothing: until a signal
};

/// The services of a camera by name, on no bus.
class Catalogue {
  public:
    explicit Catalogue(sd_event& event)
        : event_log_(out_, common::EventFormat::json, common::ColorChoice::never),
          camera_(event, event_log_, default_configuration(), [] {}) {}

    [[nodiscard]] const Camera& camera() const noexcept { return camera_; }

  private:
    std::ostringstream nowhere_;
    common::StandardOutput out_{[] {}, nowhere_};
    EventLog event_log_;
    Camera camera_;
};

/// Calls a method of the daemon without arguments that returns names.
std::set<std::string> names_from_daemon(sd_bus& bus, const char* method) {
    common::BusError error;
    common::MessagePtr reply;
    const int r = sd_bus_call_method(&bus, daemon_name, daemon_path, daemon_name, method, &error,
                                     reply.out(), "");
    if (r < 0)
        throw Failure(ExitCode::unavailable, "the bus does not answer: " + error.text(r));
    return body_json(*reply).at(0).get<std::set<std::string>>();
}

/// The owner of a bus name; empty for none.
std::string owner_of(sd_bus& bus, const std::string& name) {
    common::MessagePtr reply;
    const int r = sd_bus_call_method(&bus, daemon_name, daemon_path, daemon_name, "GetNameOwner",
                                     nullptr, reply.out(), "s", name.c_str());
    return r < 0 ? std::string{} : body_json(*reply).at(0).get<std::string>();
}

/// One recording, from the first line of the file to its last.
class Recording {
  public:
    explicit Recording(const RecordOptions& options)
        : options_(options),
          event_(new_event()),
          catalogue_(*event_),
          connection_(*event_, options.bus, [this] { lose(); }),
          timers_(*event_) {
        catch_signals();
        become_monitor();
        file_.emplace(options.file);
        recorder_ = std::make_unique<Recorder>(catalogue_.camera(), start(),
                                               [this](const std::string& text) { write(text); });
        write(
            fmt::format("# What the services of a camera answered and sent. Replay it with\n"
                        "#\n"
                        "#     fenwa-camera run --private-bus --scenario FILE -- fenwa run "
                        "GRAPH\n\n{}\n[[steps]]\nsay = {}\n",
                        recorder_->head(), toml_text("A recording from " + options.bus)));
    }

    void run() {
        if (options_.time)
            timers_.once(*options_.time, [this] { stop(); });
        common::print_message(common::Severity::info,
                              fmt::format("recording the bus at '{}'", options_.bus));
        const int status = check(sd_event_loop(event_.get()), "the event loop failed");
        if (failure_)
            throw Failure(*failure_);
        if (status != 0)
            throw Failure(ExitCode::software, "ended by the internal error above");
        recorder_->finish(Recorder::Clock::now());
        common::print_message(
            common::Severity::info,
            fmt::format("'{}' has {}", options_.file, common::counted(recorder_->steps(), "step")));
        if (lost_)
            throw Failure(ExitCode::unavailable, "the connection to the bus was lost");
    }

  private:
    void catch_signals() {
        const std::vector<int> signals = ending_signals();
        const sigset_t set = set_of(signals);
        sigprocmask(SIG_BLOCK, &set, nullptr);
        for (const int number : signals)
            check(sd_event_add_signal(event_.get(), sources_.emplace_back().out(), number,
                                      common::callback<&Recording::stop>, this),
                  "cannot serve signals");
    }

    void become_monitor() {
        sd_bus& bus = connection_.bus();
        check(
            sd_bus_add_filter(&bus, filter_.out(), common::callback<&Recording::on_message>, this),
            "sd_bus_add_filter");
        common::MessagePtr call;
        check(sd_bus_message_new_method_call(&bus, call.out(), daemon_name, daemon_path,
                                             "org.freedesktop.DBus.Monitoring", "BecomeMonitor"),
              "sd_bus_message_new_method_call");
        check(sd_bus_message_open_container(call.get(), 'a', "s"), "sd_bus_message_open_container");
        for (const std::string& rule : match_rules())
            check(sd_bus_message_append(call.get(), "s", rule.c_str()), "sd_bus_message_append");
        check(sd_bus_message_close_container(call.get()), "sd_bus_message_close_container");
        check(sd_bus_message_append(call.get(), "u", 0U), "sd_bus_message_append");
        common::BusError error;
        const int r = sd_bus_call(&bus, call.get(), 0, &error, nullptr);
        if (r < 0)
            throw Failure(ExitCode::unavailable,
                          fmt::format("the bus at '{}' does not let us listen: {}; on the bus of a "
                                      "machine only root may, as with sudo",
                                      options_.bus, error.text(r)));
    }

    [[nodiscard]] std::vector<std::string> match_rules() const {
        std::vector<std::string> rules = {
            fmt::format("type='signal',sender='{}',member='NameOwnerChanged'", daemon_name),
            fmt::format("type='error',sender='{}'", daemon_name)};
        for (const auto& service : catalogue_.camera().services()) {
            for (const std::string& name : service->bus_names()) {
                rules.push_back(fmt::format("sender='{}'", name));
                rules.push_back(fmt::format("destination='{}'", name));
            }
        }
        return rules;
    }

    /// The state of the bus, on a connection of its own: a monitor may not call.
    [[nodiscard]] Recorder::Start start() const {
        const common::BusPtr bus = common::open_bus(options_.bus, bus_timeout);
        Recorder::Start start;
        for (const std::string& name : names_from_daemon(*bus, "ListNames")) {
            if (name.starts_with(':'))
                start.others.insert(name);
        }
        start.activatable = names_from_daemon(*bus, "ListActivatableNames");
        for (const auto& service : catalogue_.camera().services()) {
            for (const std::string& name : service->bus_names()) {
                if (std::string owner = owner_of(*bus, name); !owner.empty())
                    start.owners[name] = std::move(owner);
            }
        }
        start.time = Recorder::Clock::now();
        return start;
    }

    int on_message(sd_bus_message& message) {
        // sd-bus reports the end of the connection in the same way.
        if (text_or_empty(sd_bus_message_get_path(&message)) == "/org/freedesktop/DBus/Local")
            return 0;
        // Messages of the time before `start` are older than what it has seen.
        if (recorder_ != nullptr && !failure_) {
            try {
                recorder_->take(message, Recorder::Clock::now());
            } catch (const Failure& failure) {
                failure_ = failure;
                stop();
            }
        }
        return 1;
    }

    void write(const std::string& text) {
        if (full_)
            return;
        full_ = !file_->add(text);
        if (!full_)
            return;
        common::print_message(
            common::Severity::warning,
            fmt::format("'{}' is full: a scenario has at most 1 MiB", options_.file));
        stop();
    }

    /// Ends the recording with what was sent before: the daemon may still hold it.
    void stop() {
        timers_.once(settle_time, [this] { sd_event_exit(event_.get(), 0); });
    }

    void lose() {
        lost_ = true;
        sd_event_exit(event_.get(), 0);
    }

    const RecordOptions& options_;
    common::EventPtr event_;
    std::vector<common::EventSourcePtr> sources_;
    Catalogue catalogue_;
    Connection connection_;
    common::SlotPtr filter_;
    Timers timers_;
    std::optional<RecordingFile> file_;
    std::unique_ptr<Recorder> recorder_;
    std::optional<Failure> failure_;
    bool full_ = false;
    bool lost_ = false;
};

}  // namespace

common::Command record_command() {
    const auto options = std::make_shared<RecordOptions>();
    return {.name = "record",
            .help =
                "Writes what the services of a camera answer and send as a scenario, until "
                "SIGINT, SIGTERM or SIGHUP",
            .options = {common::bus_option("The bus to listen on", options->bus),
                        {.name = "--output",
                         .short_name = "-o",
                         .value = "FILE",
                         .help = "The scenario (TOML)",
                         .take = common::into(options->file),
                         .required = true},
                        {.name = "--for",
                         .value = "SECONDS",
                         .help = "Ends after this time",
                         .take = common::into(options->time)}},
            .run = [options] {
                Recording(*options).run();
                return ExitCode::done;
            }};
}

}  // namespace camera
