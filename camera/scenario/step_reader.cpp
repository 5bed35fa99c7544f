#include "camera/scenario/step_reader.hpp"

#include <fmt/core.h>

#include <array>
#include <cmath>
#include <nlohmann/json.hpp>

#include "camera/models/number_text.hpp"

namespace camera {
namespace {

using common::Json;

constexpr std::array<std::string_view, 11> action_keys = {
    "say", "set", "ramp", "start", "stop", "restart", "fail", "clear", "press", "run", "expect"};

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
    const auto call = reader.string("call");
    const auto state = reader.string("state");
    expectation.within = time(reader, "within").value_or(expectation.within);
    std::optional<ExpectedCall> expected_call;
    std::optional<ExpectedState> expected_state;
    if (call)
        expected_call = read_call(*call, reader);
    else if (state)
        expected_state = read_state(*state, reader);
    if (call && state)
        diagnostics_.error(reader.location("state"),
                           "an expectation has either 'call' or 'state', not both");
    else if (!table.contains("call") && !table.contains("state"))
        diagnostics_.error(reader.location(), "an expectation needs 'call' or 'state'");
    reader.report_unknown_keys();
    if (expected_call)
        expectation.what = *expected_call;
    else if (expected_state)
        expectation.what = *expected_state;
    else
        return;
    step.actions.emplace_back(std::move(expectation));
}

std::optional<ExpectedCall> StepReader::read_call(const std::string& target,
                                                  common::TableReader& reader) {
    FaultRule names;
    set_target(names, target);
    ExpectedCall call{names.service, names.member, nullptr};
    if (const toml::array* arguments = reader.array("arguments")) {
        if (auto values = json(*arguments))
            call.arguments = common::share(*std::move(values));
    }
    const bool known =
        passes(reader.location("call"), [&] { camera_.check_method(call.service, call.member); });
    return known ? std::optional(call) : std::nullopt;
}

std::optional<ExpectedState> StepReader::read_state(const std::string& name,
                                                    common::TableReader& reader) {
    const toml::node* is = reader.any("is");
    if (is == nullptr) {
        reader.missing("is");
        return std::nullopt;
    }
    const auto value = json(*is);
    if (!value)
        return std::nullopt;
    std::optional<ExpectedState> expected;
    (void)passes(reader.location("state"), [&] {
        // As the camera shows the value: 71 and 71.0 are the same temperature.
        expected =
            ExpectedState{name, common::share(camera_.check_state(name, value_text(*value)))};
    });
    return expected;
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

std::optional<Json> StepReader::json(const toml::node& node) {
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
            const auto value = json(element);
            if (!value)
                return std::nullopt;
            list.push_back(*value);
        }
        return list;
    }
    diagnostics_.error(common::position(node),
                       fmt::format("expected a string, a number, a boolean or an array, not {}",
                                   common::kind_of(node)));
    return std::nullopt;
}

}  // namespace camera
