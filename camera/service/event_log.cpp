#include "camera/service/event_log.hpp"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "common/events/output_writer.hpp"
#include "common/text/line_text.hpp"
#include "common/text/utf8.hpp"

namespace camera {
namespace {

using common::Json;

/// Arguments for people; the JSON has the whole document.
std::string brief(const Json& arguments) {
    constexpr std::size_t longest = 80;
    std::string text;
    for (const Json& argument : arguments) {
        const std::string each = common::json_line(argument);
        const std::string_view begin = common::first_code_points(each, longest);
        text.append(text.empty() ? "" : ", ")
            .append(begin)
            .append(begin.size() < each.size() ? "…" : "");
    }
    return text;
}

}  // namespace

void EventLog::write(std::string_view event, const Json& fields, const std::string& subject,
                     std::string_view color, const std::string& sentence) {
    if (lines_.format() == common::EventFormat::json) {
        lines_.write_json(event, fields);
        return;
    }
    const common::Palette& palette = lines_.palette();
    std::string text;
    if (!subject.empty())
        text = fmt::format("{}{}{}: ", palette.cyan, common::one_line(subject), palette.reset);
    text.append(color).append(common::one_line(sentence));
    if (!color.empty())
        text.append(palette.reset);
    lines_.write_text([&](std::string& line) { line += text; });
}

void EventLog::write_exchange(std::string_view event, const std::string& service,
                              const std::string& member, const std::string& receiver,
                              const Json& details, std::string_view color,
                              const std::string& sentence) {
    if (brief_)
        return;
    Json fields = {{"service", service}, {"member", member}, {"receiver", receiver}};
    fields.update(details);
    write(event, fields, service, color, sentence);
}

std::string EventLog::unread(std::size_t lines) const {
    return lines_.format() == common::EventFormat::json
               ? lines_.json_event("unread", {{"lines", lines}})
               : common::dropped_line(lines);
}

void EventLog::ready(const std::string& bus, const std::vector<std::string>& services) {
    ready_ = true;
    write("ready", {{"bus", bus}, {"services", services}}, "", lines_.palette().green,
          services.empty()
              ? fmt::format("ready on {}, no services", bus)
              : fmt::format("ready on {}, services: {}", bus, fmt::join(services, ", ")));
}

void EventLog::service_up(const std::string& service, const std::vector<std::string>& bus_names,
                          const std::string& unique_name) {
    // The line that the camera is ready lists the services.
    if (brief_ && !ready_)
        return;
    write("service",
          {{"service", service}, {"state", "up"}, {"name", unique_name}, {"bus_names", bus_names}},
          service, "", fmt::format("up as {} ({})", fmt::join(bus_names, ", "), unique_name));
}

void EventLog::service_down(const std::string& service, const std::string& why) {
    if (brief_ && why.empty())
        return;
    Json fields = {{"service", service}, {"state", "down"}};
    if (!why.empty())
        fields["why"] = why;
    write("service", fields, service, "", why.empty() ? "down" : "down: " + why);
}

void EventLog::call(const CallRecord& call) {
    if (brief_)
        return;
    write("call",
          {{"service", call.service},
           {"member", call.member},
           {"arguments", *call.arguments},
           {"sender", call.sender}},
          call.service, "",
          fmt::format("{} calls {}({})", call.sender, call.member, brief(*call.arguments)));
}

void EventLog::reply(const std::string& service, const std::string& member,
                     const std::string& receiver, const Json& values) {
    write_exchange("reply", service, member, receiver, {{"values", values}}, "",
                   fmt::format("answers {}, {}: ({})", receiver, member, brief(values)));
}

void EventLog::error_reply(const std::string& service, const std::string& member,
                           const std::string& receiver, const std::string& name,
                           const std::string& message) {
    write_exchange("reply", service, member, receiver, {{"error", name}, {"message", message}},
                   lines_.palette().red,
                   fmt::format("refuses {}, {}: {}: {}", receiver, member, name, message));
}

void EventLog::signal(const std::string& service, const std::string& member,
                      const Json& arguments) {
    if (brief_)
        return;
    write("signal", {{"service", service}, {"member", member}, {"arguments", arguments}}, service,
          "", fmt::format("signals {}({})", member, brief(arguments)));
}

void EventLog::call_out(const std::string& service, const std::string& member,
                        const std::string& receiver, const Json& arguments) {
    write_exchange("outgoing_call", service, member, receiver, {{"arguments", arguments}}, "",
                   fmt::format("calls {}, {}({})", receiver, member, brief(arguments)));
}

void EventLog::call_answered(const std::string& service, const std::string& member,
                             const std::string& receiver, const Json& values) {
    write_exchange("answer", service, member, receiver, {{"values", values}}, "",
                   fmt::format("{} answers {}: ({})", receiver, member, brief(values)));
}

void EventLog::call_failed(const std::string& service, const std::string& member,
                           const std::string& receiver, const std::string& name,
                           const std::string& message) {
    write_exchange(
        "answer", service, member, receiver, {{"error", name}, {"message", message}},
        lines_.palette().red,
        fmt::format("the call of {}, {}, has failed: {}: {}", receiver, member, name, message));
}

void EventLog::registrations_dropped(const std::string& service, const std::string& client,
                                     std::size_t count) {
    write("dropped", {{"service", service}, {"client", client}, {"registrations", count}}, service,
          "", fmt::format("{} has left the bus; registrations dropped with it: {}", client, count));
}

void EventLog::value_set(const std::string& service, const std::string& name, const Json& value,
                         const std::string& sentence) {
    write("set", {{"name", name}, {"value", value}}, service, lines_.palette().bold, sentence);
}

void EventLog::pressed(const std::string& service, const std::string& button,
                       const std::string& request) {
    write("press", {{"service", service}, {"button", button}, {"request", request}}, service,
          lines_.palette().bold, fmt::format("the button {} is pressed: {}", button, request));
}

void EventLog::text_expired(const std::string& service, const std::string& text) {
    write("expired", {{"service", service}, {"text", text}}, service, "",
          fmt::format("the text {} has had its time", common::json_line(text)));
}

void EventLog::fault(std::string_view state, const std::string& target, const std::string& what) {
    write("fault", {{"state", state}, {"member", target}, {"what", what}}, "fault",
          lines_.palette().yellow, fmt::format("{}, {}: {}", target, state, what));
}

void EventLog::step(std::size_t number, const std::string& location) {
    if (lines_.format() == common::EventFormat::json)
        write("step", {{"step", number}, {"where", location}}, "", "", {});
}

void EventLog::say(std::size_t step, const std::string& text) {
    write("say", {{"step", step}, {"text", text}}, "", lines_.palette().green, text);
}

void EventLog::expectation(std::size_t step, const std::string& location,
                           const std::string& expected, bool met, const Json& instead) {
    Json fields = {{"step", step}, {"where", location}, {"expected", expected}, {"met", met}};
    if (!met)
        fields.update(instead);
    write("expectation", fields, "scenario", met ? lines_.palette().green : lines_.palette().red,
          (met ? "as expected: " : "expected, but did not come: ") + expected);
}

void EventLog::missing_call(std::size_t step, const std::string& location,
                            const std::string& member, double within) {
    write("missing_call",
          {{"step", step}, {"where", location}, {"member", member}, {"within", within}}, "scenario",
          lines_.palette().yellow,
          fmt::format("no call of {} within {} s; going on", member, Json(within).dump()));
}

void EventLog::exit(common::ExitCode code) {
    const int status = static_cast<int>(code);
    write("exit", {{"status", status}}, "", lines_.palette().dim,
          fmt::format("the end, with exit code {}", status));
}

}  // namespace camera
