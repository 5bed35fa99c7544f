#include "common/cli/options.hpp"

#include <utility>

namespace common {
namespace {

Option any_bus_option(const std::string& subject, TakeValue take) {
    return {.name = "--bus",
            .value = "ADDRESS",
            .help = subject + ": system, session or a D-Bus address",
            .take = std::move(take)};
}

}  // namespace

Option bus_option(const std::string& subject, std::string& bus) {
    Option option = any_bus_option(subject, into(bus));
    option.default_text = bus;
    return option;
}

Option bus_option(const std::string& subject, std::optional<std::string>& bus) {
    return any_bus_option(subject, into(bus));
}

Option format_option(const std::string& subject, EventFormat& format) {
    return {.name = "--format",
            .choices = {"text", "json"},
            .help = "Form of " + subject,
            .default_text = "text",
            .take = [&format](const std::string& word) {
                format = word == "json" ? EventFormat::json : EventFormat::text;
                return std::string();
            }};
}

Option timestamps_option(Timestamps& timestamps) {
    return {.name = "--timestamps",
            .choices = {"relative", "wall", "none"},
            .help =
                "Time in front of each line of text: seconds since the start, date and time, "
                "or none",
            .default_text = "relative",
            .take = [&timestamps](const std::string& word) {
                timestamps = word == "wall"   ? Timestamps::wall
                             : word == "none" ? Timestamps::none
                                              : Timestamps::relative;
                return std::string();
            }};
}

Option color_option(ColorChoice& color) {
    return {.name = "--color",
            .choices = {"auto", "always", "never"},
            .help = "Whether to use colours",
            .default_text = "auto",
            .take = [&color](const std::string& word) {
                color = color_choice(word);
                return std::string();
            }};
}

}  // namespace common
