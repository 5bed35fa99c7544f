#include "camera/scenario/scenario.hpp"

#include <fmt/core.h>
#include <nlohmann/json.hpp>

#include "camera/bus/message_json.hpp"

namespace camera {
namespace {

std::string call_text(const ExpectedCall& call) {
    return fmt::format("a call of {}{}{}{}", call.service, call.service.empty() ? "" : ".",
                       call.member,
                       call.arguments ? fmt::format("({})", arguments_text(*call.arguments)) : "");
}

}  // namespace

std::string Expectation::description() const {
    const auto* call = std::get_if<ExpectedCall>(&what);
    const auto* state = std::get_if<ExpectedState>(&what);
    return fmt::format("{} within {} s",
                       call != nullptr
                           ? call_text(*call)
                           : fmt::format("{} to be {}", state->name, common::json_line(*state->is)),
                       common::Json(within.count()).dump());
}

}  // namespace camera
