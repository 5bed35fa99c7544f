#include <fmt/format.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "common/bus/callback.hpp"
#include "common/bus/control_client.hpp"
#include "common/cli/options.hpp"
#include "common/events/standard_output.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/terminal.hpp"
#include "host/cli/options.hpp"
#include "host/graph/graph.hpp"
#include "host/output/event_writer.hpp"
#include "host/runtime/event_loop.hpp"
#include "host/value/bus_value.hpp"

namespace host {
namespace {

using common::check;
using common::ExitCode;
using common::Failure;

struct WatchOptions {
    ControlTarget target;
    common::EventFormat format = common::EventFormat::text;
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// Hands a host's signals to the event writer.
class Watch {
  public:
    /// From here on every new value is kept, and is written once the loop serves the client's bus.
    Watch(const common::ControlClient& host, EventLoop& loop, EventWriter& events)
        : host_(host), loop_(loop), events_(events) {
        const std::string& name = host.peer().name;
        // A bus name holds nothing that a match rule would have to quote.
        const std::string rule = fmt::format(
            "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='{}'",
            name);
        check(sd_bus_add_match(&host.bus(), owner_match_.out(), rule.c_str(),
                               common::callback<&Watch::on_owner_changed>, this),
              "cannot watch for the host's end");
        check(sd_bus_match_signal(&host.bus(), output_match_.out(), name.c_str(), control_path,
                                  control_interface, "OutputChanged",
                                  common::callback<&Watch::on_output_changed>, this),
              "cannot watch the host");
        learn_datatypes();
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    [[nodiscard]] bool host_has_gone() const noexcept { return gone_; }

  private:
    /// Event lines distinguish a float from a double, and variants do not.
    void learn_datatypes() {
        host_.read_json("Describe", [this](const common::Json& description) {
            for (const common::Json& block : description.at("blocks")) {
                const auto name = block.at("name").get<std::string>();
                for (const common::Json& output : block.at("outputs"))
                    datatypes_.emplace(name + '.' + output.at("name").get<std::string>(),
                                       datatype_named(output.at("type").get<std::string>()));
            }
        });
    }

    void on_output_changed(sd_bus_message& signal) {
        try {
            write_output(signal);
        } catch (const std::exception&) {
            // A signal of that name from another program, in another form.
        }
    }

    void write_output(sd_bus_message& signal) {
        const std::string port = common::read_string(signal);
        const std::optional<Endpoint> end = parse_endpoint(port);
        const auto datatype = datatypes_.find(port);
        if (!end || datatype == datatypes_.end())
            return;
        if (const auto value = value_from_variant(signal, datatype->second))
            events_.output(end->block, end->port, datatype->second, *value);
    }

    int on_owner_changed() noexcept {
        gone_ = true;
        return sd_event_exit(&loop_.get(), 0);
    }

    const common::ControlClient& host_;
    EventLoop& loop_;
    EventWriter& events_;
    common::SlotPtr owner_match_;
    common::SlotPtr output_match_;
    std::unordered_map<std::string, Fenwa::Datatype> datatypes_;
    bool gone_ = false;
};

void watch_until_the_end(const WatchOptions& options, EventLoop& loop, EventWriter& events) {
    const common::ControlClient host = connect_to_host(options.target);
    const Watch watch(host, loop, events);
    loop.attach(host.bus());
    events.ready();
    loop.run(std::nullopt);
    if (loop.lost_bus())
        throw Failure(ExitCode::unavailable,
                      fmt::format("lost the connection to the bus at '{}'", options.target.bus));
    if (watch.host_has_gone())
        throw Failure(
            ExitCode::unavailable,
            fmt::format("the host that owned '{}' has left the bus", options.target.name));
}

/// Prints every output of a running host that carries a new value, in the form in which that host's
/// own run prints it, until a signal comes.
/// @throws common::Failure as ControlClient; `unavailable` when the host or the bus goes away.
ExitCode watch_host(const WatchOptions& options) {
    Supervisor& supervisor = Supervisor::start(Supervisor::Hangup::ends);
    supervisor.stop_in_order();
    EventLoop loop(supervisor);
    common::StandardOutput out([&supervisor] { supervisor.request_stop(); });
    const std::unique_ptr<EventWriter> events =
        make_event_writer(options.format, out, options.color);
    try {
        watch_until_the_end(options, loop, *events);
    } catch (const Failure& failure) {
        events->exit(static_cast<int>(failure.code()));
        throw;
    }
    events->exit(static_cast<int>(ExitCode::done));
    return code_after(out, ExitCode::done);
}

}  // namespace

common::Command watch_command() {
    const auto options = std::make_shared<WatchOptions>();
    return {.name = "watch",
            .help = "Prints each new value of a running host's outputs until SIGINT or SIGTERM",
            .options = {target_bus_option(options->target), target_name_option(options->target),
                        common::format_option("the event lines", options->format),
                        common::color_option(options->color)},
            .run = [options] { return watch_host(*options); }};
}

}  // namespace host
