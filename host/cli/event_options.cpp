#include "host/cli/event_options.hpp"

#include <fmt/core.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <utility>

#include "common/cli/options.hpp"
#include "common/events/journal.hpp"
#include "common/text/line_text.hpp"
#include "host/output/event_filter.hpp"

namespace host {
namespace {

using common::Option;

/// Reads "output,log". @returns the mistake, empty for none.
std::string take_events(const std::string& list, std::vector<std::string>& events) {
    static const std::vector<std::string> known{"output", "debug", "setup", "log"};
    std::istringstream words(list + ',');
    for (std::string word; std::getline(words, word, ',');) {
        if (std::find(known.begin(), known.end(), word) == known.end())
            return fmt::format("{} is not one of output, debug, setup and log",
                               common::in_quotes(word));
        events.push_back(word);
    }
    return {};
}

EventFilter filter_of(const EventOptions& options) {
    EventFilter filter;
    filter.ports = options.ports;
    // The ticks of timers are no news to a reader, who would see little else.
    filter.ticks = options.format == common::EventFormat::json || !options.ports.empty();
    filter.least_severity = options.least_severity;
    if (!options.events.empty()) {
        const auto has = [&options](const char* event) {
            return std::find(options.events.begin(), options.events.end(), event) !=
                   options.events.end();
        };
        filter.setup = has("setup");
        filter.output = has("output");
        filter.debug = has("debug");
        filter.log = has("log");
    } else if (options.quiet || common::leads_to_journal(STDOUT_FILENO)) {
        // Values would fill the journal, unless somebody asks for some.
        filter.setup = filter.debug = false;
        filter.output = !options.ports.empty();
    }
    return filter;
}

}  // namespace

std::vector<Option> line_options(EventOptions& options) {
    return {common::format_option("the event lines", options.format),
            common::timestamps_option(options.timestamps), common::color_option(options.color)};
}

std::vector<Option> filter_options(EventOptions& options) {
    return {
        {.name = "--output",
         .value = "GLOB",
         .help = "Prints these outputs only, as BLOCK.PORT with *, ? and []; may be repeated",
         .take = common::into(options.ports),
         .count = Option::Count::repeated},
        {.name = "--events",
         .value = "LIST",
         .help = "Prints these events only: some of output, debug, setup and log, with commas",
         .take = [&options](const std::string& list) { return take_events(list, options.events); }},
        {.name = "--quiet",
         .help = "Prints no values",
         .take = common::into(options.quiet),
         .excludes = {"--output", "--events"}},
        {.name = "--log-level",
         .choices = {"error", "warning", "info"},
         .help = "Prints log lines of blocks that are at least so urgent",
         .default_text = "info",
         .take = [&options](const std::string& word) {
             options.least_severity = word == "error"     ? common::Severity::error
                                      : word == "warning" ? common::Severity::warning
                                                          : common::Severity::info;
             return std::string();
         }}};
}

std::unique_ptr<EventWriter> make_event_writer(const EventOptions& options,
                                               common::StandardOutput& out) {
    return make_filter(filter_of(options),
                       make_event_writer(options.format, out, options.color, options.timestamps));
}

}  // namespace host
