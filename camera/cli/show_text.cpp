#include "camera/cli/show_text.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <nlohmann/json.hpp>

#include "common/text/diagnostics.hpp"

namespace camera {
namespace {

using common::Json;

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

std::string plain(const Json& value) {
    return common::one_line(common::plain_text(value));
}

void add_service(std::string& text, const Json& service) {
    const bool is_up = service["state"] == "up";
    text += fmt::format("service {}: {}", plain(service["name"]), plain(service["state"]));
    if (is_up)
        text += " as " + plain(service["unique_name"]);
    else if (service["activatable"].get<bool>())
        text += ", a call brings it up";
    text += "\n";
    for (const Json& name : service["bus_names"])
        text += fmt::format("  name {}\n", plain(name));
    for (const Json& registration : service["registrations"])
        text += fmt::format("  registration {} of {}: {}\n", plain(registration["id"]),
                            plain(registration["client"]), plain(registration["what"]));
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
        text += fmt::format("{}  {}\n", padded(common::one_line(name), width),
                            value == "" ? "\"\"" : plain(value));
    for (const Json& fault : state["faults"])
        text += fmt::format("fault {}: {}\n", plain(fault["member"]), plain(fault["what"]));
    return text;
}

}  // namespace camera
