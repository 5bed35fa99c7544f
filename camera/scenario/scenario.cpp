#include "camera/scenario/scenario.hpp"

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include "camera/bus/message_json.hpp"

namespace camera {
namespace {

std::string call_text(const ExpectedCall& call, bool absent) {
    return fmt::format("{} call of {}{}{}{}", absent ? "no" : "a", call.service,
                       call.service.empty() ? "" : ".", call.member,
                       call.arguments ? fmt::format("({})", arguments_text(*call.arguments)) : "");
}

std::string value_text(const ExpectedValue& value, bool absent) {
    const Condition& condition = value.condition;
    const std::string part = condition.contains ? common::json_line(*condition.contains) : "";
    const char* not_ = absent ? "not " : "";
    switch (value.source) {
        case ExpectedValue::Source::log:
            return fmt::format("{} log line of {} that {}", absent ? "no" : "a", value.name,
                               part.empty() ? "is " + condition.text() : "contains " + part);
        case ExpectedValue::Source::state:
        case ExpectedValue::Source::output:
        case ExpectedValue::Source::status:
            break;
    }
    return fmt::format("{}{} {}{}", value.source == ExpectedValue::Source::status ? "status " : "",
                       value.name, not_,
                       part.empty() ? "to be " + condition.text() : "to contain " + part);
}

}  // namespace

std::string Expectation::description() const {
    const auto* call = std::get_if<ExpectedCall>(&what);
    return fmt::format("{} within {} s",
                       call != nullptr ? call_text(*call, absent)
                                       : value_text(std::get<ExpectedValue>(what), absent),
                       common::Json(within.count()).dump());
}

}  // namespace camera
