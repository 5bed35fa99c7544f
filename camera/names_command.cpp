#include "camera/names_command.hpp"

#include <numeric>
#include <set>
#include <string>

#include "camera/camera.hpp"
#include "camera/client_commands.hpp"
#include "common/bus.hpp"
#include "common/line_text.hpp"
#include "common/print_text.hpp"

namespace camera {
namespace {

/// Of a camera that is on no bus, one a line.
std::string fixed_names(bool members) {
    sd_event* event = nullptr;
    tool::check(sd_event_new(&event), "sd_event_new");
    const tool::EventPtr owned(event);
    Story story(stdout, Format::text, false, {});
    const Camera camera(*event, story, default_configuration(), [] {});
    std::string services;
    std::set<std::string> known;
    for (const auto& service : camera.services()) {
        services += service->name() + '\n';
        for (const auto& [member, kind] : service->members()) {
            known.insert(member + '\n');
            known.insert(service->name() + '.' + member + '\n');
        }
    }
    return members ? std::accumulate(known.begin(), known.end(), std::string()) : services;
}

}  // namespace

void print_names(const std::string& bus, const std::string& kind) {
    if (kind != "values") {
        tool::print_text(fixed_names(kind == "members"));
        return;
    }
    const tool::Json state = camera_state(bus);
    std::string names;
    for (const auto& [name, value] : state.at("values").items()) {
        if (tool::one_line(name) == name)
            names += name + '\n';
    }
    tool::print_text(names);
}

}  // namespace camera
