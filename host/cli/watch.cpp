#include <fmt/format.h>

#include <exception>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "common/bus/callback.hpp"
#include "common/bus/control_client.hpp"
#include "common/events/standard_output.hpp"
#include "common/process/exit_code.hpp"
#include "host/cli/described_ports.hpp"
#include "host/cli/event_options.hpp"
#include "host/cli/options.hpp"
#include "host/graph/graph.hpp"
#include "host/output/event_writer.hpp"
#include "host/runtime/event_loop.hpp"
#include "host/value/bus_value.hpp"
#include "host/value/port_value.hpp"

namespace host {
namespace {

using common::check;
using common::ExitCode;
using common::Failure;
using common::Json;

struct WatchOptions {
    ControlTarget target;
    EventOptions lines{.events = {"output"}};
};

/// Hands the values of a host's outputs to the event writer: those at the begin, and then each new
/// one. A signal that comes before the host's description is in it already, and one that comes
/// after it is not, as both come from one connection.
class Watch {
  public:
    /// From here on every new value is kept, and is written once the loop serves the client's bus.
    Watch(const common::ControlClient& host, const WatchOptions& options, EventLoop& loop,
          EventWriter& events)
        : host_(host), globs_(options.lines.ports), loop_(loop), events_(events) {
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
        host_.send(host_.new_call("Subscribe"));
        ask_for_description();
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    [[nodiscard]] bool host_has_gone() const noexcept { return gone_; }
    /// The exception that ended the loop; null for none.
    [[nodiscard]] const std::exception_ptr& failure() const noexcept { return failure_; }

  private:
    struct Output {
        Fenwa::Datatype datatype;
        std::string label;  ///< of the event writer
    };

    void ask_for_description() {
        if (std::exchange(is_asking_, true))
            return;
        check(sd_bus_call_async(&host_.bus(), description_.out(), host_.new_call("Describe").get(),
                                common::callback<&Watch::on_description>, this, 0),
              "cannot call the host");
    }

    void on_description(sd_bus_message& reply) noexcept {
        is_asking_ = false;
        try {
            host_.read_json(reply, [this](const Json& description) {
                learn_outputs(ports_in(description, {"outputs"}));
            });
            if (!std::exchange(is_ready_, true))
                events_.ready();
        } catch (...) {
            failure_ = std::current_exception();
            sd_event_exit(&loop_.get(), 0);
        }
    }

    /// Writes the values of outputs that are not known yet.
    void learn_outputs(const std::vector<DescribedPort>& outputs) {
        if (!is_ready_)
            check_globs(globs_, outputs, "output");
        for (const DescribedPort& output : outputs) {
            const Fenwa::Datatype datatype = datatype_named(output.type);
            const auto [known, is_new] = outputs_.try_emplace(
                output.name(),
                Output{datatype, events_.output_label(output.block, output.port, datatype)});
            if (is_new && !known->second.label.empty())
                events_.output(known->second.label, datatype,
                               value_from_json(datatype, *output.value));
        }
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
        const auto output = outputs_.find(port);
        // The host may have built blocks since the description.
        if (output == outputs_.end())
            return ask_for_description();
        const auto& [datatype, label] = output->second;
        if (label.empty())
            return;
        if (const auto value = value_from_variant(signal, datatype)) {
            events_.output(label, datatype, *value);
        } else {
            outputs_.erase(output);
            ask_for_description();
        }
    }

    int on_owner_changed() noexcept {
        gone_ = true;
        return sd_event_exit(&loop_.get(), 0);
    }

    const common::ControlClient& host_;
    const std::vector<std::string>& globs_;
    EventLoop& loop_;
    EventWriter& events_;
    common::SlotPtr owner_match_;
    common::SlotPtr output_match_;
    common::SlotPtr description_;
    std::unordered_map<std::string, Output> outputs_;  ///< by their names
    bool is_asking_ = false;
    bool is_ready_ = false;
    bool gone_ = false;
    std::exception_ptr failure_;
};

void watch_until_the_end(const WatchOptions& options, EventLoop& loop, EventWriter& events) {
    const common::ControlClient host = connect_to_host(options.target);
    const Watch watch(host, options, loop, events);
    loop.attach(host.bus());
    loop.run(std::nullopt);
    if (watch.failure() != nullptr)
        std::rethrow_exception(watch.failure());
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
/// @throws common::Failure as ControlClient; `unavailable` when the host or the bus goes away,
///         `usage` for a glob that no output matches.
ExitCode watch_host(const WatchOptions& options) {
    Supervisor& supervisor = Supervisor::start(Supervisor::Hangup::ends);
    supervisor.stop_in_order();
    EventLoop loop(supervisor);
    common::StandardOutput out([&supervisor] { supervisor.request_stop(); });
    const std::unique_ptr<EventWriter> events = make_event_writer(options.lines, out);
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
    std::vector<common::Option> all{target_bus_option(options->target),
                                    target_name_option(options->target)};
    const std::vector<common::Option> of_lines = line_options(options->lines);
    all.insert(all.end(), of_lines.begin(), of_lines.end());
    return {.name = "watch",
            .help =
                "Prints the values of a running host's outputs, and each new one until SIGINT "
                "or SIGTERM",
            .arguments = {{.name = "GLOB",
                           .help = "Outputs as BLOCK.PORT with *, ? and []; all without one",
                           .take = common::into(options->lines.ports),
                           .count = common::Option::Count::several}},
            .options = std::move(all),
            .run = [options] { return watch_host(*options); }};
}

}  // namespace host
