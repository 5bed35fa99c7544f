#include "camera/scenario/scenario.hpp"

#include "camera/bus/message_json.hpp"

namespace camera {
namespace {

std::string call_text(const ExpectedCall& call) {
    std::string text = "a call of ";
    if (!call.service.empty())
        text += call.service + ".";
    text += call.member;
    if (call.arguments)
        text += "(" + arguments_text(*call.arguments) + ")";
    return text;
}

}  // namespace

std::string Expectation::description() const {
    const auto* call = std::get_if<ExpectedCall>(&what);
    const auto* state = std::get_if<ExpectedState>(&what);
    return (call != nullptr ? call_text(*call)
                            : state->name + " to be " + common::json_line(state->is)) +
           " within " + common::Json(within.count()).dump() + " s";
}

}  // namespace camera
