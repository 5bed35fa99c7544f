#include "camera/cli/show_text.hpp"

#include <algorithm>
#include <cstddef>

#include "common/text/diagnostics.hpp"

namespace camera {
namespace {

using common::Json;

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

std::string plain(const Json& value) {
    return common::one_line(value.is_string() ? value.get<std::string>()
                                              : common::json_line(value));
}

void add_service(std::string& text, const Json& service) {
    text += "service " + plain(service["name"]) + ": " + plain(service["state"]);
    if (service["state"] == "up")
        text += " as " + plain(service["unique_name"]);
    else if (service["activatable"].get<bool>())
        text += ", a call brings it up";
    text += "\n";
    for (const Json& name : service["bus_names"])
        text += "  name " + plain(name) + "\n";
    for (const Json& registration : service["registrations"])
        text += "  registration " + plain(registration["id"]) + " of " +
                plain(registration["client"]) + ": " + plain(registration["what"]) + "\n";
}

}  // namespace

std::string show_text(const Json& state) {
    std::string text = "bus " + plain(state["bus"]) + "\n";
    for (const Json& service : state["services"])
        add_service(text, service);
    std::size_t width = 0;
    for (const auto& [name, value] : state["values"].items())
        width = std::max(width, common::one_line(name).size());
    for (const auto& [name, value] : state["values"].items())
        text += padded(common::one_line(name), width) + "  " +
                (value == "" ? "\"\"" : plain(value)) + "\n";
    for (const Json& fault : state["faults"])
        text += "fault " + plain(fault["member"]) + ": " + plain(fault["what"]) + "\n";
    return text;
}

}  // namespace camera
