// Reading and checking a fault rule: what `fenwa-camera fail` sends.
#include <fmt/core.h>
#include <systemd/sd-bus.h>
#include <nlohmann/json.hpp>

#include "camera/models/command_error.hpp"
#include "camera/models/number_text.hpp"
#include "camera/service/fault_rules.hpp"
#include "common/text/suggestion.hpp"

namespace camera {
namespace {

using common::Json;

CommandError wrong_value(const std::string& key, const std::string& accepted, const Json& value) {
    return CommandError(
        fmt::format("'{}' of a fault must be {}, not {}", key, accepted, common::json_line(value)));
}

std::int64_t integer_from_json(const std::string& key, const Json& value, std::int64_t min) {
    if (!value.is_number_integer())
        throw wrong_value(key, "an integer", value);
    // A number above the signed range is above every limit too.
    const auto number =
        value.is_number_unsigned() && value.get<std::uint64_t>() > std::uint64_t{INT64_MAX}
            ? INT64_MAX
            : value.get<std::int64_t>();
    if (number < min)
        throw wrong_value(key, fmt::format("at least {}", min), value);
    return number;
}

std::string string_from_json(const std::string& key, const Json& value) {
    if (!value.is_string())
        throw wrong_value(key, "a string", value);
    return value.get<std::string>();
}

void set_effect(FaultRule& rule, FaultEffect effect) {
    if (rule.effect != FaultEffect::none)
        throw CommandError("a fault takes only one of 'error', 'malformed', 'silent' and 'drop'");
    rule.effect = effect;
}

void set_flag(FaultRule& rule, const std::string& key, const Json& value, FaultEffect effect) {
    if (!value.is_boolean())
        throw wrong_value(key, "true or false", value);
    if (value.get<bool>())
        set_effect(rule, effect);
}

void set_option(FaultRule& rule, const std::string& key, const Json& value) {
    static const std::vector<std::string> known = {
        "member", "error", "malformed", "silent", "drop", "delay", "times", "seed", "probability"};
    if (key == "member") {
        set_target(rule, string_from_json(key, value));
    } else if (key == "error") {
        rule.error_name = string_from_json(key, value);
        set_effect(rule, FaultEffect::error);
    } else if (key == "malformed") {
        set_flag(rule, key, value, FaultEffect::malformed);
    } else if (key == "silent") {
        set_flag(rule, key, value, FaultEffect::silent);
    } else if (key == "drop") {
        set_flag(rule, key, value, FaultEffect::drop);
    } else if (key == "delay") {
        const std::int64_t delay = integer_from_json(key, value, 1);
        if (delay > max_fault_delay.count())
            throw wrong_value(key, fmt::format("at most {} ms (a day)", max_fault_delay.count()),
                              value);
        rule.delay = std::chrono::milliseconds(delay);
    } else if (key == "times") {
        const std::int64_t times = integer_from_json(key, value, 1);
        if (times > std::int64_t{UINT32_MAX})
            throw wrong_value(key, fmt::format("at most {}", UINT32_MAX), value);
        rule.times = static_cast<std::uint32_t>(times);
    } else if (key == "seed") {
        rule.seed = static_cast<std::uint64_t>(integer_from_json(key, value, 0));
    } else if (key == "probability") {
        if (!value.is_number())
            throw wrong_value(key, "a number", value);
        rule.probability = value.get<double>();
    } else {
        throw CommandError(fmt::format("unknown key '{}' in the fault", key),
                           common::did_you_mean(key, known));
    }
}

/// Checks the options against each other.
void check_fault_rule(const FaultRule& rule) {
    if (rule.member.empty())
        throw CommandError("a fault needs 'member', the name of a method, signal or property");
    if (rule.effect == FaultEffect::none && rule.delay.count() == 0)
        throw CommandError(
            "a fault needs one of 'error', 'malformed', 'silent', 'drop' and 'delay'");
    if (rule.effect == FaultEffect::silent && rule.delay.count() > 0)
        throw CommandError("a fault takes either 'silent' or 'delay', not both");
    if (rule.effect == FaultEffect::error &&
        sd_bus_interface_name_is_valid(rule.error_name.c_str()) <= 0)
        throw CommandError(
            fmt::format("'{}' is not a valid D-Bus error name, such as com.example.Error.Busy",
                        rule.error_name));
    // In a form that is false for NaN.
    if (!(rule.probability > 0.0 && rule.probability <= 1.0))
        throw CommandError(
            fmt::format("'probability' of a fault must be above 0 and at most 1, not {}",
                        number_text(rule.probability)));
}

}  // namespace

FaultRule fault_rule_from(const Json& options, const FaultMistake& report) {
    FaultRule rule;
    bool readable = true;
    for (const auto& [key, value] : options.items()) {
        try {
            set_option(rule, key, value);
        } catch (const CommandError& mistake) {
            readable = false;
            report(key, mistake);
        }
    }
    // A contradiction between options counts only if each of them is right by itself.
    if (!readable)
        return rule;
    try {
        if (options.contains("seed") && !options.contains("probability"))
            throw CommandError("'seed' of a fault needs 'probability'");
        check_fault_rule(rule);
    } catch (const CommandError& mistake) {
        report({}, mistake);
    }
    return rule;
}

}  // namespace camera
