#include "host/value/value_text.hpp"

#include <fmt/core.h>

#include <limits>
#include <nlohmann/json.hpp>

#include "common/process/exit_code.hpp"
#include "common/text/line_text.hpp"
#include "common/text/number_text.hpp"

namespace host {
namespace {

[[noreturn]] void refuse(const std::string& text, const std::string& wanted) {
    throw common::Failure(common::ExitCode::usage,
                          fmt::format("{} is not {}", common::in_quotes(text), wanted));
}

template <class Number>
Number number(const std::string& text, const std::string& wanted) {
    const std::optional<Number> value = common::parse_number<Number>(text);
    if (!value)
        refuse(text, wanted);
    return *value;
}

struct FromText {
    const std::string& text;

    PortValue operator()(bool) const {
        if (text != "true" && text != "false")
            refuse(text, "a bool; expected true or false");
        return text == "true";
    }
    PortValue operator()(int) const {
        return number<int>(
            text, fmt::format("an int; expected a whole number from {} to {}",
                              std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
    }
    template <class Real>
    PortValue operator()(const Real& /*like*/) const {
        if constexpr (std::is_floating_point_v<Real>)
            return number<Real>(
                text, "a number in the range of a double; nan, inf and -inf are accepted");
        else
            refuse(text, "a value of this type");
    }
};

}  // namespace

std::string to_text(const PortValue& value) {
    return common::plain_text(to_json(value));
}

std::string unknown_value_text(const std::string& type) {
    return '<' + type + '>';
}

PortValue from_text(const std::string& text, const PortValue& like) {
    return std::visit(FromText{text}, like);
}

}  // namespace host
