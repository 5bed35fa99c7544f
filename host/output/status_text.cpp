#include "host/output/status_text.hpp"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "common/text/diagnostics.hpp"
#include "common/text/line_text.hpp"
#include "host/output/log_level.hpp"

namespace host {
namespace {

using common::Json;

/// A text of the host or a block, safe for a terminal.
std::string text_of(const Json& value) {
    const auto text = value.get<std::string>();
    return common::one_line(common::without_line_end(text));
}

std::string age_text(const Json& seconds) {
    const double age = seconds.get<double>();
    return age < 100 ? fmt::format("{:.1f} s ago", age) : fmt::format("{:.0f} s ago", age);
}

std::string work_text(const Json& block) {
    const auto runs = common::number_from_json<std::uint64_t>(block.at("runs"));
    const auto values = common::number_from_json<std::uint64_t>(block.at("published"));
    std::string text =
        runs == 0 ? "not run yet"
                  : fmt::format("{}, {} a second, the last {}", common::counted(runs, "run"),
                                block.at("runs_per_second").get<double>(),
                                age_text(block.at("last_run")));
    if (values > 0)
        text += "; published " + common::counted(values, "value");
    if (block.at("paced").get<bool>())
        text += "; paced, because it tries again and again";
    return text;
}

std::string call_text(const Json& call, const common::Palette& colors) {
    std::string outcome = "not answered yet";
    std::string_view color = colors.yellow;
    if (call.contains("error")) {
        outcome = text_of(call.at("error"));
        if (!text_of(call.at("message")).empty())
            outcome += ": " + text_of(call.at("message"));
        color = colors.red;
    } else if (call.at("answered").get<bool>()) {
        outcome = "answered";
        color = colors.green;
    }
    return fmt::format("  called {} of {} {}: {}{}{}\n", text_of(call.at("member")),
                       text_of(call.at("service")), age_text(call.at("age")), color, outcome,
                       colors.reset);
}

std::string log_text(const Json& line, const common::Palette& colors) {
    const common::Severity severity = severity_of(common::number_from_json<int>(line.at("level")));
    return fmt::format("  logged {}: {}{}:{} {}\n", age_text(line.at("age")),
                       color_of(severity, colors), severity_name(severity), colors.reset,
                       text_of(line.at("message")));
}

}  // namespace

Json status_in(const Json& description) {
    Json blocks = Json::array();
    for (const Json& block : description.at("blocks")) {
        Json status = {{"name", block.at("name")}, {"type", block.at("type")}};
        status.update(block.at("status"));
        blocks.push_back(std::move(status));
    }
    return {{"blocks", std::move(blocks)}};
}

std::string status_as_text(const Json& status, const common::Palette& colors) {
    std::string text;
    for (const Json& block : status.at("blocks")) {
        text += fmt::format("{}{}{} ({}): {}\n", colors.bold, text_of(block.at("name")),
                            colors.reset, text_of(block.at("type")), work_text(block));
        if (block.at("waits_for").is_array()) {
            for (const Json& service : block.at("waits_for"))
                text += fmt::format("  {}waiting for {}, which nobody owns{}\n", colors.red,
                                    text_of(service), colors.reset);
        }
        if (!block.at("last_call").is_null())
            text += call_text(block.at("last_call"), colors);
        if (!block.at("last_log").is_null())
            text += log_text(block.at("last_log"), colors);
    }
    return text.empty() ? "no blocks\n" : text;
}

}  // namespace host
