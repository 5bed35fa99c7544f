#include <unordered_map>

#include "common/bus/callback.hpp"
#include "common/bus/out.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/terminal.hpp"
#include "host/cli/options.hpp"
#include "host/control/client.hpp"
#include "host/graph/graph.hpp"
#include "host/output/event_writer.hpp"
#include "host/output/journal.hpp"
#include "host/output/standard_output.hpp"
#include "host/runtime/event_loop.hpp"
#include "host/value/bus_value.hpp"

namespace host {
namespace {

using common::check;
using common::ExitCode;
using common::Failure;

/// What `fenwa watch` was asked for.
struct WatchOptions {
    ControlTarget target;
    EventFormat format = EventFormat::text;
    common::ColorChoice color = common::ColorChoice::automatic;
};

/// Hands a host's signals to the event writer.
class Watch {
  public:
    /// From here on every new value is kept, and is told once the loop serves the client's bus.
    Watch(const ControlClient& host, EventLoop& loop, EventWriter& events)
        : host_(host), loop_(loop), events_(events) {
        const std::string& name = host.target().name;
        // A bus name holds nothing that a match rule would have to quote.
        const std::string rule =
            "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='" + name +
            "'";
        check(sd_bus_add_match(&host.bus(), common::out(owner_match_), rule.c_str(),
                               common::callback<&Watch::on_owner_changed>, this),
              "cannot watch for the host's end");
        check(sd_bus_match_signal(&host.bus(), common::out(output_match_), name.c_str(),
                                  control_path, control_interface, "OutputChanged",
                                  common::callback<&Watch::on_output_changed>, this),
              "cannot watch the host");
        learn_datatypes();
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    [[nodiscard]] bool host_has_gone() const noexcept { return gone_; }

  private:
    /// A variant does not tell a float from a double, and event lines do.
    void learn_datatypes() {
        host_.with_description([this](const common::Json& description) {
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
            tell(signal);
        } catch (const std::exception&) {
            // Somebody else's signal of that name, in another form.
        }
    }

    void tell(sd_bus_message& signal) {
        const char* port = nullptr;
        check(sd_bus_message_read(&signal, "s", &port), "cannot read a port's name");
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

    const ControlClient& host_;
    EventLoop& loop_;
    EventWriter& events_;
    common::SlotPtr owner_match_;
    common::SlotPtr output_match_;
    std::unordered_map<std::string, Fenwa::Datatype> datatypes_;
    bool gone_ = false;
};

void watch_until_the_end(const WatchOptions& options, EventLoop& loop, EventWriter& events) {
    const ControlClient host(options.target);
    const Watch watch(host, loop, events);
    loop.attach(host.bus());
    events.ready();
    loop.run(std::nullopt);
    if (loop.lost_bus())
        throw Failure(ExitCode::unavailable,
                      "lost the connection to the bus at '" + options.target.bus + "'");
    if (watch.host_has_gone())
        throw Failure(ExitCode::unavailable,
                      "the host that owned '" + options.target.name + "' has left the bus");
}

/// Prints every output of a running host that carries a new value, in the form in which that host's
/// own run prints it, until a signal comes.
/// @throws common::Failure as ControlClient does; `unavailable` when the host or the bus goes away.
ExitCode watch_host(const WatchOptions& options) {
    open_closed_streams();
    const Journal journal({});
    Supervisor& supervisor = Supervisor::start(Supervisor::Hangup::ends);
    supervisor.stop_in_order();
    EventLoop loop(supervisor);
    StandardOutput out([&supervisor] { supervisor.request_stop(); });
    const std::unique_ptr<EventWriter> events =
        make_event_writer(options.format, out, journal, options.color);
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

Command add_watch_command(CLI::App& program) {
    const auto options = std::make_shared<WatchOptions>();
    CLI::App& watch =
        add_command(program, "watch",
                    "Prints each new value of a running host's outputs until SIGINT or SIGTERM");
    add_target(watch, options->target);
    add_format(watch, options->format);
    add_color(watch, options->color);
    return {&watch, [options] { return watch_host(*options); }};
}

}  // namespace host
