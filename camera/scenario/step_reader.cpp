#include "camera/scenario/step_reader.hpp"

#include <fmt/core.h>
#include <systemd/sd-bus.h>

#include <array>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include "camera/models/number_text.hpp"
#include "common/bus/bus.hpp"
#include "common/bus/host_control.hpp"

namespace camera {
namespace {

using common::Json;

constexpr std::array<std::string_view, 14> action_keys = {
    "say",   "set",   "ramp", "start",  "stop",  "restart", "fail",
    "clear", "press", "run",  "expect", "reply", "signal",  "call"};
/// What an expectation may be about.
constexpr std::array<std::string_view, 5> subjects = {"call", "state", "output", "log", "status"};

/// The text that `set` takes for a value.
std::string value_text(const Json& value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

}  // namespace

Step StepReader::read(const toml::node& node) {
    Step step;
    step.location = common::position(node);
    const toml::table* table = node.as_table();
    if (table == nullptr) {
        diagnostics_.error(step.location,
                           fmt::format("a step must be a table, not {}", common::kind_of(node)));
        return step;
    }
    common::TableReader reader(*table, "the step", diagnostics_);
    read_times(reader, step);
    for (const std::string_view key : action_keys)
        (void)reader.any(key);
    for (const common::TomlEntry& entry : common::in_file_order(*table))
        read_action(entry.key, reader, step);
    reader.report_unknown_keys();
    return step;
}

void StepReader::read_times(common::TableReader& reader, Step& step) {
    step.at = time(reader, "at");
    step.after = time(reader, "after");
    if (step.at && step.after)
        diagnostics_.error(reader.location("after"), "a step has either 'at' or 'after', not both");
}

void StepReader::read_action(const std::string& key, common::TableReader& reader, Step& step) {
    if (key == "say") {
        if (const auto text = reader.string(key))
            step.actions.emplace_back(Say{*text});
    } else if (key == "set") {
        if (const toml::table* table = reader.table(key))
            read_set(*table, step);
    } else if (key == "ramp") {
        if (const toml::table* table = reader.table(key))
            read_ramp(*table, step);
    } else if (key == "start") {
        read_service_command(ServiceCommand::Verb::start, key, reader, step);
    } else if (key == "stop") {
        read_service_command(ServiceCommand::Verb::stop, key, reader, step);
    } else if (key == "restart") {
        read_service_command(ServiceCommand::Verb::restart, key, reader, step);
    } else if (key == "fail") {
        if (const toml::table* table = reader.table(key))
            read_fail(*table, step);
    } else if (key == "clear") {
        const auto target = reader.string(key);
        if (target && passes(reader.location(key), [&] { camera_.check_fault_target(*target); }))
            step.actions.emplace_back(ClearFault{*target});
    } else if (key == "press") {
        // Not checked, because clients add buttons while the camera runs.
        if (const auto button = reader.string(key))
            step.actions.emplace_back(Press{*button});
    } else if (key == "run") {
        read_run(reader, step);
    } else if (key == "expect") {
        if (const toml::table* table = reader.table(key))
            read_expectation(*table, step);
    } else if (key == "reply") {
        if (const toml::table* table = reader.table(key))
            read_reply(*table, step);
    } else if (key == "signal" || key == "call") {
        if (const toml::table* table = reader.table(key))
            read_send(key, *table, step);
    }
}

void StepReader::read_service_command(ServiceCommand::Verb verb, const std::string& key,
                                      common::TableReader& reader, Step& step) {
    const auto service = reader.string(key);
    if (service && passes(reader.location(key), [&] { camera_.check_service(*service); }))
        step.actions.emplace_back(ServiceCommand{verb, *service});
}

void StepReader::read_set(const toml::table& table, Step& step) {
    each_value(table, "", [&](const std::string& name, const common::TomlEntry& entry) {
        const auto value = json(*entry.value);
        if (!value)
            return;
        const std::string text = value_text(*value);
        if (passes(entry.location, [&] { (void)camera_.check_value(name, text); }))
            step.actions.emplace_back(SetValue{name, text});
    });
}

void StepReader::read_ramp(const toml::table& table, Step& step) {
    common::TableReader reader(table, "the ramp", diagnostics_);
    const std::optional<Seconds> over = time(reader, "over");
    if (!table.contains("over"))
        reader.missing("over");
    each_value(table, "", [&](const std::string& name, const common::TomlEntry& entry) {
        if (name == "over")
            return;
        const auto target = entry.value->value<double>();
        if (!target || !std::isfinite(*target)) {
            diagnostics_.error(entry.location,
                               fmt::format("the target of a ramp must be a finite number, not {}",
                                           target ? number_text(*target)
                                                  : std::string(common::kind_of(*entry.value))));
            return;
        }
        const bool known = passes(entry.location, [&] {
            if (!camera_.check_value(name, Json(*target).dump()).is_number())
                throw CommandError(fmt::format("'{}' cannot ramp: it is not a number", name));
        });
        if (known && over)
            step.actions.emplace_back(Ramp{name, *target, *over});
    });
}

void StepReader::read_fail(const toml::table& table, Step& step) {
    Json options = Json::object();
    bool right = true;
    for (const common::TomlEntry& entry : common::in_file_order(table)) {
        if (const auto value = json(*entry.value))
            options[entry.key] = *value;
        else
            right = false;
    }
    const FaultRule rule =
        fault_rule_from(options, [&](const std::string& key, const CommandError& mistake) {
            // A contradiction between options does not count where one of them is not readable.
            if (key.empty() && !right)
                return;
            right = false;
            const toml::node* node = table.get(key);
            diagnostics_.error(common::position(node == nullptr ? table : *node),
                               mistake.sentence(), mistake.help());
        });
    const toml::node* member = table.get("member");
    if (right && passes(common::position(*member), [&] { camera_.check_fault(rule); }))
        step.actions.emplace_back(SetFault{rule});
}

void StepReader::read_run(common::TableReader& reader, Step& step) {
    const toml::array* words = reader.array("run");
    if (words == nullptr)
        return;
    RunProgram run;
    for (const toml::node& word : *words) {
        if (!word.is_string()) {
            diagnostics_.error(common::position(word),
                               fmt::format("a program and its arguments must be strings, not {}",
                                           common::kind_of(word)));
            return;
        }
        run.command.push_back(word.as_string()->get());
    }
    if (run.command.empty() || run.command.front().empty())
        diagnostics_.error(reader.location("run"), "'run' needs a program");
    else
        step.actions.emplace_back(std::move(run));
}

void StepReader::read_expectation(const toml::table& table, Step& step) {
    common::TableReader reader(table, "the expectation", diagnostics_);
    Expectation expectation;
    std::string_view subject;
    for (const std::string_view key : subjects) {
        if (!table.contains(key))
            continue;
        if (!std::exchange(subject, key).empty()) {
            diagnostics_.error(
                reader.location(key),
                "an expectation has only one of 'call', 'state', 'output', 'log' and 'status'");
            return;
        }
    }
    if (subject.empty())
        diagnostics_.error(reader.location(),
                           "an expectation needs one of 'call', 'state', "
                           "'output', 'log' and 'status'");
    expectation.within = time(reader, "within").value_or(expectation.within);
    expectation.absent = reader.boolean("absent").value_or(false);
    std::optional<ExpectedCall> call;
    std::optional<ExpectedValue> value;
    for (const std::string_view key : subjects) {
        if (key != subject)
            (void)reader.any(key);
        else if (key == "call")
            call = read_call(reader);
        else
            value = read_value(key, reader);
    }
    reader.report_unknown_keys();
    if (call)
        expectation.what = *std::move(call);
    else if (value)
        expectation.what = *std::move(value);
    else
        return;
    step.actions.emplace_back(std::move(expectation));
}

std::optional<ExpectedCall> StepReader::read_call(common::TableReader& reader) {
    const auto target = reader.string("call");
    FaultRule names;
    set_target(names, target.value_or(""));
    ExpectedCall call{names.service, names.member, json_array(reader, "arguments")};
    const bool known = target && passes(reader.location("call"),
                                        [&] { camera_.check_method(call.service, call.member); });
    return known ? std::optional(std::move(call)) : std::nullopt;
}

std::optional<ExpectedValue> StepReader::read_value(std::string_view subject,
                                                    common::TableReader& reader) {
    ExpectedValue value;
    const bool known = check_subject(value, subject, reader);
    const bool right = read_condition(value, reader);
    if (!known || !right)
        return std::nullopt;
    if (value.source == ExpectedValue::Source::state && !check_state(value, reader))
        return std::nullopt;
    return value;
}

bool StepReader::check_subject(ExpectedValue& value, std::string_view subject,
                               common::TableReader& reader) {
    using Source = ExpectedValue::Source;
    const auto name = reader.string(subject);
    value.name = name.value_or("");
    if (subject == "state")
        return name.has_value();
    value.source = subject == "output" ? Source::output
                   : subject == "log"  ? Source::log
                                       : Source::status;
    value.host = reader.string("host").value_or(common::host_control_name);
    if (!common::is_ownable_name(value.host)) {
        diagnostics_.error(reader.location("host"),
                           fmt::format("'{}' is not a valid well-known bus name", value.host));
        return false;
    }
    const std::size_t dot = value.name.find('.');
    if (name && value.source != Source::log &&
        (dot == std::string::npos || dot == 0 || value.name.back() == '.')) {
        diagnostics_.error(reader.location(subject),
                           fmt::format("'{}' is not of the form BLOCK.{}", value.name,
                                       value.source == Source::output ? "PORT" : "KEY"));
        return false;
    }
    return name.has_value();
}

bool StepReader::read_condition(ExpectedValue& value, common::TableReader& reader) {
    const std::size_t before = diagnostics_.errors();
    Condition& condition = value.condition;
    for (const char* key : {"is", "contains"}) {
        const toml::node* node = reader.any(key);
        if (node == nullptr)
            continue;
        if (auto expected = json(*node))
            (key == std::string_view("is") ? condition.is : condition.contains) =
                common::share(*std::move(expected));
    }
    const bool log = value.source == ExpectedValue::Source::log;
    if (!log && !read_range(condition, reader))
        return false;
    if (diagnostics_.errors() != before)
        return false;
    const int kinds =
        (condition.is ? 1 : 0) + (condition.contains ? 1 : 0) + (condition.is_range() ? 1 : 0);
    if (kinds == 1)
        return true;
    diagnostics_.error(
        reader.location(),
        fmt::format("an expectation of a {} needs {} of 'is'{}", log ? "log line" : "value",
                    kinds == 0 ? "one" : "only one",
                    log ? " and 'contains'" : ", 'contains', 'above', 'below' and 'between'"));
    return false;
}

bool StepReader::read_range(Condition& condition, common::TableReader& reader) {
    const std::size_t before = diagnostics_.errors();
    condition.above = reader.number("above");
    condition.below = reader.number("below");
    if (const toml::array* between = reader.array("between")) {
        const auto number = [&](std::size_t i) {
            return i < between->size() ? (*between)[i].value<double>() : std::nullopt;
        };
        condition.from = number(0);
        condition.to = number(1);
        // In a form that is false for NaN.
        if (between->size() != 2 || !condition.from || !condition.to ||
            !(*condition.from <= *condition.to))
            diagnostics_.error(reader.location("between"),
                               "'between' must be two numbers, the lower one first");
        else if (condition.above || condition.below)
            diagnostics_.error(reader.location("between"),
                               "'between' does not go with 'above' and 'below'");
    }
    return diagnostics_.errors() == before;
}

bool StepReader::check_state(ExpectedValue& value, common::TableReader& reader) {
    return passes(reader.location("state"), [&] {
        if (value.condition.is)
            value.condition.is =
                common::share(camera_.check_state(value.name, value_text(*value.condition.is)));
        else
            (void)camera_.value(value.name);
    });
}

void StepReader::read_reply(const toml::table& table, Step& step) {
    common::TableReader reader(table, "the reply", diagnostics_);
    const std::size_t before = diagnostics_.errors();
    Reply reply;
    const std::optional<ExpectedCall> call = read_call(reader);
    if (!table.contains("call"))
        reader.missing("call");
    reply.reply.path = bus_text(reader, "path");
    reply.reply.types = reader.string("types");
    reply.reply.values = json_array(reader, "values");
    reply.reply.error = bus_text(reader, "error");
    reply.reply.message = reader.string("message").value_or("");
    reply.reply.silent = reader.boolean("silent").value_or(false);
    reply.reply.after = std::chrono::duration_cast<std::chrono::microseconds>(
        time(reader, "after").value_or(Seconds(0)));
    reply.within = time(reader, "within").value_or(reply.within);
    reader.report_unknown_keys();
    const int kinds = (reply.reply.values ? 1 : 0) + (reply.reply.error.empty() ? 0 : 1) +
                      (reply.reply.silent ? 1 : 0);
    if (kinds > 1)
        diagnostics_.error(reader.location(),
                           "a reply has only one of 'values', 'error' and 'silent'");
    if (diagnostics_.errors() != before || !call)
        return;
    reply.reply.service = call->service;
    reply.reply.member = call->member;
    reply.reply.arguments = call->arguments;
    step.actions.emplace_back(std::move(reply));
}

void StepReader::read_send(const std::string& key, const toml::table& table, Step& step) {
    common::TableReader reader(table, "the " + key, diagnostics_);
    const std::size_t before = diagnostics_.errors();
    Send send;
    const auto target = reader.string("member");
    if (!table.contains("member"))
        reader.missing("member");
    FaultRule names;
    set_target(names, target.value_or(""));
    send.message.service = names.service;
    send.message.member = names.member;
    send.message.path = bus_text(reader, "path");
    send.message.interface = bus_text(reader, "interface");
    send.message.types = reader.string("types");
    send.message.arguments = json_array(reader, "arguments");
    if (key == "call") {
        send.message.to = bus_text(reader, "to");
        for (const char* required : {"to", "path", "interface"}) {
            if (!table.contains(required))
                reader.missing(required);
        }
    }
    reader.report_unknown_keys();
    if (diagnostics_.errors() == before &&
        passes(reader.location("member"), [&] { camera_.check_message(send.message); }))
        step.actions.emplace_back(std::move(send));
}

common::SharedJson StepReader::json_array(common::TableReader& reader, std::string_view key) {
    const toml::array* array = reader.array(key);
    if (array == nullptr)
        return nullptr;
    auto values = json(*array, Tables::accepted);
    return values ? common::share(*std::move(values)) : nullptr;
}

std::string StepReader::bus_text(common::TableReader& reader, std::string_view key) {
    const auto text = reader.string(key);
    if (!text)
        return {};
    const bool valid = key == "path" ? sd_bus_object_path_is_valid(text->c_str()) > 0
                       : key == "to" ? sd_bus_service_name_is_valid(text->c_str()) > 0
                                     : sd_bus_interface_name_is_valid(text->c_str()) > 0;
    if (valid)
        return *text;
    const char* noun = key == "path"    ? "object path"
                       : key == "to"    ? "bus name"
                       : key == "error" ? "error name"
                                        : "interface name";
    diagnostics_.error(reader.location(key),
                       fmt::format("'{}' is not a valid D-Bus {}", *text, noun));
    return {};
}

void StepReader::each_value(const toml::table& table, const std::string& prefix,
                            const Visit& visit) {
    for (const common::TomlEntry& entry : common::in_file_order(table)) {
        if (const toml::table* inner = entry.value->as_table())
            each_value(*inner, prefix + entry.key + ".", visit);
        else
            visit(prefix + entry.key, entry);
    }
}

bool StepReader::passes(common::SourceLocation location, const std::function<void()>& check) {
    try {
        check();
        return true;
    } catch (const CommandError& error) {
        diagnostics_.error(location, error.sentence(), error.help());
        return false;
    }
}

std::optional<Seconds> StepReader::time(common::TableReader& reader, std::string_view key) {
    const auto number = reader.number(key);
    if (!number)
        return std::nullopt;
    // In a form that is false for NaN.
    if (!(*number >= 0.0 && *number <= max_scenario_time.count())) {
        diagnostics_.error(
            reader.location(key),
            fmt::format("'{}' must be a time in seconds from 0 to {}, not {}", key,
                        number_text(max_scenario_time.count()), number_text(*number)));
        return std::nullopt;
    }
    return Seconds(*number);
}

std::optional<Json> StepReader::json(const toml::node& node, Tables tables) {
    if (const auto* text = node.as_string())
        return Json(text->get());
    if (const auto* integer = node.as_integer())
        return Json(integer->get());
    if (const auto* number = node.as_floating_point())
        return common::json_number(number->get());
    if (const auto* boolean = node.as_boolean())
        return Json(boolean->get());
    if (const auto* array = node.as_array()) {
        Json list = Json::array();
        for (const toml::node& element : *array) {
            const auto value = json(element, tables);
            if (!value)
                return std::nullopt;
            list.push_back(*value);
        }
        return list;
    }
    const toml::table* table = tables == Tables::accepted ? node.as_table() : nullptr;
    if (table != nullptr) {
        Json object = Json::object();
        for (const common::TomlEntry& entry : common::in_file_order(*table)) {
            const auto value = json(*entry.value, tables);
            if (!value)
                return std::nullopt;
            object[entry.key] = *value;
        }
        return object;
    }
    diagnostics_.error(common::position(node),
                       fmt::format("expected a string, a number, a boolean or an array, not {}",
                                   common::kind_of(node)));
    return std::nullopt;
}

}  // namespace camera
