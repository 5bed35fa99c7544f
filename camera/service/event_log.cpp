#include "camera/service/event_log.hpp"

#include <array>
#include <cerrno>
#include <cmath>
#include <utility>

#include "camera/bus/message_json.hpp"
#include "common/text/line_text.hpp"

namespace camera {
namespace {

using common::Json;

std::string join(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text.append(text.empty() ? "" : ", ").append(word);
    return text;
}

/// Arguments for somebody who reads along: whoever wants a whole document looks into the JSON.
std::string brief(const Json& arguments) {
    constexpr std::size_t longest = 80;
    std::string text;
    for (const Json& argument : arguments) {
        std::string each = common::json_line(argument);
        if (each.size() > longest) {
            std::size_t end = longest;
            while ((static_cast<unsigned char>(each[end]) & 0xC0U) == 0x80U)
                --end;  // not within a character
            each = each.substr(0, end) + "…";
        }
        text.append(text.empty() ? "" : ", ").append(each);
    }
    return text;
}

}  // namespace

EventLog::EventLog(std::FILE* out, Format format, bool color, std::function<void(int)> broken)
    : out_(out), format_(format), palette_(color), broken_(std::move(broken)) {}

double EventLog::seconds() const {
    const std::chrono::duration<double> since = std::chrono::steady_clock::now() - start_;
    return std::round(since.count() * 1e6) / 1e6;
}

void EventLog::write(std::string_view event, const Json& fields, const std::string& subject,
                     std::string_view color, const std::string& sentence) {
    std::string line;
    if (format_ == Format::json) {
        Json object = {{"event", event}, {"time", seconds()}};
        object.update(fields);
        line = common::json_line(object);
    } else {
        std::array<char, 32> time{};
        std::snprintf(time.data(), time.size(), "%8.3f", seconds());
        line.append(palette_.dim).append(time.data()).append(palette_.reset).append("  ");
        if (!subject.empty())
            line.append(palette_.cyan)
                .append(common::one_line(subject))
                .append(palette_.reset)
                .append(": ");
        line.append(color).append(common::one_line(sentence));
        if (!color.empty())
            line.append(palette_.reset);
    }
    line.push_back('\n');
    const bool written = std::fputs(line.c_str(), out_) >= 0 && std::fflush(out_) == 0;
    if (!written && broken_)
        std::exchange(broken_, nullptr)(errno);
}

void EventLog::ready(const std::string& bus, const std::vector<std::string>& services) {
    write(
        "ready", {{"bus", bus}, {"services", services}}, "", palette_.green,
        "ready on " + bus + (services.empty() ? ", no services" : ", services: " + join(services)));
}

void EventLog::service_up(const std::string& service, const std::vector<std::string>& bus_names,
                          const std::string& unique_name) {
    write("service",
          {{"service", service}, {"state", "up"}, {"name", unique_name}, {"bus_names", bus_names}},
          service, "", "up as " + join(bus_names) + " (" + unique_name + ")");
}

void EventLog::service_down(const std::string& service, const std::string& why) {
    Json fields = {{"service", service}, {"state", "down"}};
    if (!why.empty())
        fields["why"] = why;
    write("service", fields, service, "", why.empty() ? "down" : "down: " + why);
}

void EventLog::call(const CallRecord& call) {
    write("call",
          {{"service", call.service},
           {"member", call.member},
           {"arguments", call.arguments},
           {"sender", call.sender}},
          call.service, "",
          call.sender + " calls " + call.member + "(" + brief(call.arguments) + ")");
}

void EventLog::reply(const std::string& service, const std::string& member,
                     const std::string& receiver, const Json& values) {
    write("reply",
          {{"service", service}, {"member", member}, {"receiver", receiver}, {"values", values}},
          service, "", "answers " + receiver + ", " + member + ": (" + brief(values) + ")");
}

void EventLog::error_reply(const std::string& service, const std::string& member,
                           const std::string& receiver, const std::string& name,
                           const std::string& message) {
    write("reply",
          {{"service", service},
           {"member", member},
           {"receiver", receiver},
           {"error", name},
           {"message", message}},
          service, palette_.red,
          "refuses " + receiver + ", " + member + ": " + name + ": " + message);
}

void EventLog::signal(const std::string& service, const std::string& member,
                      const Json& arguments) {
    write("signal", {{"service", service}, {"member", member}, {"arguments", arguments}}, service,
          "", "signals " + member + "(" + brief(arguments) + ")");
}

void EventLog::call_out(const std::string& service, const std::string& member,
                        const std::string& receiver, const Json& arguments) {
    write("outgoing_call",
          {{"service", service},
           {"member", member},
           {"receiver", receiver},
           {"arguments", arguments}},
          service, "", "calls " + receiver + ", " + member + "(" + brief(arguments) + ")");
}

void EventLog::call_answered(const std::string& service, const std::string& member,
                             const std::string& receiver, const Json& values) {
    write("answer",
          {{"service", service}, {"member", member}, {"receiver", receiver}, {"values", values}},
          service, "", receiver + " answers " + member + ": (" + brief(values) + ")");
}

void EventLog::call_failed(const std::string& service, const std::string& member,
                           const std::string& receiver, const std::string& name,
                           const std::string& message) {
    write("answer",
          {{"service", service},
           {"member", member},
           {"receiver", receiver},
           {"error", name},
           {"message", message}},
          service, palette_.red,
          "the call of " + receiver + ", " + member + ", has failed: " + name + ": " + message);
}

void EventLog::registrations_dropped(const std::string& service, const std::string& client,
                                     std::size_t count) {
    write("dropped", {{"service", service}, {"client", client}, {"registrations", count}}, service,
          "",
          client + " has left the bus; registrations dropped with it: " + std::to_string(count));
}

void EventLog::value_set(const std::string& service, const std::string& name, const Json& value,
                         const std::string& sentence) {
    write("set", {{"name", name}, {"value", value}}, service, palette_.bold, sentence);
}

void EventLog::pressed(const std::string& service, const std::string& button,
                       const std::string& request) {
    write("press", {{"service", service}, {"button", button}, {"request", request}}, service,
          palette_.bold, "the button " + button + " is pressed: " + request);
}

void EventLog::text_expired(const std::string& service, const std::string& text) {
    write("expired", {{"service", service}, {"text", text}}, service, "",
          "the text " + common::json_line(text) + " has had its time");
}

void EventLog::fault(std::string_view state, const std::string& target, const std::string& what) {
    write("fault", {{"state", state}, {"member", target}, {"what", what}}, "fault", palette_.yellow,
          target + ", " + std::string(state) + ": " + what);
}

void EventLog::step(std::size_t number, const std::string& location) {
    if (format_ == Format::json)
        write("step", {{"step", number}, {"where", location}}, "", "", {});
}

void EventLog::say(std::size_t step, const std::string& text) {
    write("say", {{"step", step}, {"text", text}}, "", palette_.green, text);
}

void EventLog::expectation(std::size_t step, const std::string& location,
                           const std::string& expected, bool met, const Json& calls) {
    Json fields = {{"step", step}, {"where", location}, {"expected", expected}, {"met", met}};
    if (!met)
        fields["calls"] = calls;
    write("expectation", fields, "scenario", met ? palette_.green : palette_.red,
          (met ? "as expected: " : "expected, but did not come: ") + expected);
}

void EventLog::exit(common::ExitCode code) {
    const int status = static_cast<int>(code);
    write("exit", {{"status", status}}, "", palette_.dim,
          "the end, with exit code " + std::to_string(status));
}

}  // namespace camera
