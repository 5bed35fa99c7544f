#include <fmt/format.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "common/bus/control_client.hpp"
#include "common/cli/options.hpp"
#include "common/events/print_text.hpp"
#include "common/events/standard_output.hpp"
#include "common/process/exit_code.hpp"
#include "common/text/json.hpp"
#include "common/text/terminal.hpp"
#include "host/cli/options.hpp"
#include "host/output/status_text.hpp"

namespace host {
namespace {

using common::ExitCode;
using common::Failure;
using common::Json;

struct StatusOptions {
    ControlTarget target;
    common::EventFormat format = common::EventFormat::text;
    common::ColorChoice color = common::ColorChoice::automatic;
    bool watch = false;
};

constexpr std::chrono::seconds watch_period{1};

std::string status_text(const StatusOptions& options, const common::ControlClient& host) {
    return host.read_json("Describe", [&options](const Json& description) {
        const Json status = status_in(description);
        if (options.format == common::EventFormat::json)
            return common::json_line(status) + '\n';
        return status_as_text(status, common::Palette(common::use_color(options.color, stdout)));
    });
}

/// A text that takes the place of the one before it on a terminal, without a flicker.
std::string redrawn(const std::string& text) {
    std::string lines = "\033[H";
    for (const char letter : text) {
        if (letter == '\n')
            lines += "\033[K";
        lines += letter;
    }
    return lines + "\033[J";
}

/// Prints what each block of a running host does and waits for; with `watch` every second until a
/// signal or the end of the host.
/// @throws common::Failure as ControlClient; `usage` for a text that is to be redrawn elsewhere
///         than at a terminal.
ExitCode print_status(const StatusOptions& options) {
    const bool redraws = options.watch && options.format == common::EventFormat::text;
    if (redraws && isatty(STDOUT_FILENO) == 0)
        throw Failure(ExitCode::usage,
                      "--watch redraws at a terminal; use --format json for a stream of objects");
    const common::ControlClient host = connect_to_host(options.target);
    if (!options.watch) {
        common::print_text(status_text(options, host));
        return ExitCode::done;
    }
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        std::signal(signal, [](int) { _exit(static_cast<int>(ExitCode::done)); });
    common::StandardOutput out([] {});
    while (out.error() == 0) {
        const std::string text = status_text(options, host);
        out.write(redraws ? redrawn(text) : text);
        std::this_thread::sleep_for(watch_period);
    }
    return common::code_after(out, ExitCode::done);
}

}  // namespace

common::Command status_command() {
    const auto options = std::make_shared<StatusOptions>();
    return {.name = "status",
            .help = "Prints what each block of a running host does and waits for",
            .options = {target_bus_option(options->target),
                        target_name_option(options->target),
                        common::format_option("the status", options->format),
                        {.name = "--watch",
                         .help = "Once a second until a signal comes; text is redrawn",
                         .take = common::into(options->watch)},
                        common::color_option(options->color)},
            .run = [options] { return print_status(*options); }};
}

}  // namespace host
