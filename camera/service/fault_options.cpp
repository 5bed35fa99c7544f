// Reading and checking a fault rule: what `fenwa-camera fail` sends.
#include <systemd/sd-bus.h>

#include "camera/models/command_error.hpp"
#include "camera/service/fault_rules.hpp"
#include "common/text/suggestion.hpp"

namespace camera {
namespace {

using common::Json;

std::int64_t integer_of(const std::string& key, const Json& value, std::int64_t least) {
    if (!value.is_number_integer())
        throw CommandError("'" + key + "' of a fault must be an integer");
    // What lies above the signed range is above every limit of ours as well.
    const auto number =
        value.is_number_unsigned() && value.get<std::uint64_t>() > std::uint64_t{INT64_MAX}
            ? INT64_MAX
            : value.get<std::int64_t>();
    if (number < least)
        throw CommandError("'" + key + "' of a fault must be " + std::to_string(least) +
                           " or more");
    return number;
}

std::string string_of(const std::string& key, const Json& value) {
    if (!value.is_string())
        throw CommandError("'" + key + "' of a fault must be a string");
    return value.get<std::string>();
}

void set_effect(FaultRule& rule, FaultEffect effect) {
    if (rule.effect != FaultEffect::none)
        throw CommandError("a fault is one of error, malformed, silent and drop, not two of them");
    rule.effect = effect;
}

void set_flag(FaultRule& rule, const std::string& key, const Json& value, FaultEffect effect) {
    if (!value.is_boolean())
        throw CommandError("'" + key + "' of a fault must be true or false");
    if (value.get<bool>())
        set_effect(rule, effect);
}

void set_option(FaultRule& rule, const std::string& key, const Json& value) {
    static const std::vector<std::string> known = {
        "member", "error", "malformed", "silent", "drop", "delay", "times", "seed", "probability"};
    if (key == "member") {
        set_target(rule, string_of(key, value));
    } else if (key == "error") {
        rule.error_name = string_of(key, value);
        set_effect(rule, FaultEffect::error);
    } else if (key == "malformed") {
        set_flag(rule, key, value, FaultEffect::malformed);
    } else if (key == "silent") {
        set_flag(rule, key, value, FaultEffect::silent);
    } else if (key == "drop") {
        set_flag(rule, key, value, FaultEffect::drop);
    } else if (key == "delay") {
        const std::int64_t delay = integer_of(key, value, 1);
        if (delay > max_fault_delay.count())
            throw CommandError("'delay' of a fault must be at most a day (" +
                               std::to_string(max_fault_delay.count()) + " ms)");
        rule.delay = std::chrono::milliseconds(delay);
    } else if (key == "times") {
        const std::int64_t times = integer_of(key, value, 1);
        if (times > std::int64_t{UINT32_MAX})
            throw CommandError("'times' of a fault must be at most " + std::to_string(UINT32_MAX));
        rule.times = static_cast<std::uint32_t>(times);
    } else if (key == "seed") {
        rule.seed = static_cast<std::uint64_t>(integer_of(key, value, 0));
    } else if (key == "probability") {
        if (!value.is_number())
            throw CommandError("'probability' of a fault must be a number");
        rule.probability = value.get<double>();
    } else {
        throw CommandError("a fault has no '" + key + "'", common::did_you_mean(key, known));
    }
}

/// How the options go together.
void check_fault_rule(const FaultRule& rule) {
    if (rule.member.empty())
        throw CommandError("a fault needs the name of a method, signal or property in 'member'");
    if (rule.effect == FaultEffect::none && rule.delay.count() == 0)
        throw CommandError("a fault needs one of error, malformed, silent, drop and delay");
    if (rule.effect == FaultEffect::silent && rule.delay.count() > 0)
        throw CommandError(
            "what is never sent cannot be late: 'silent' and 'delay' do not go together");
    if (rule.effect == FaultEffect::error &&
        sd_bus_interface_name_is_valid(rule.error_name.c_str()) <= 0)
        throw CommandError("'" + rule.error_name +
                           "' is not a D-Bus error name, which looks like com.example.Error.Busy");
    // Written so that NaN is refused as well.
    if (!(rule.probability > 0.0 && rule.probability <= 1.0))
        throw CommandError("'probability' of a fault must be above 0 and at most 1");
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
    // What does not go together is worth saying only where each option is right by itself.
    if (!readable)
        return rule;
    try {
        if (options.contains("seed") && !options.contains("probability"))
            throw CommandError("'seed' of a fault goes with 'probability'");
        check_fault_rule(rule);
    } catch (const CommandError& mistake) {
        report({}, mistake);
    }
    return rule;
}

}  // namespace camera
