#include "camera/names_command.hpp"

#include <iostream>
#include <set>

#include "camera/camera.hpp"
#include "camera/client_commands.hpp"
#include "common/bus.hpp"
#include "common/line_text.hpp"

namespace camera {
namespace {

/// Of a camera that is on no bus.
void print_fixed_names(bool members) {
    sd_event* event = nullptr;
    tool::check(sd_event_new(&event), "sd_event_new");
    const tool::EventPtr owned(event);
    Story story(stdout, Format::text, false, {});
    const Camera camera(*event, story, default_configuration(), [] {});
    std::set<std::string> known;
    for (const auto& service : camera.services()) {
        if (!members)
            std::cout << service->name() << '\n';
        else
            for (const auto& [member, kind] : service->members()) {
                known.insert(member);
                known.insert(service->name() + '.' + member);
            }
    }
    for (const std::string& member : known)
        std::cout << member << '\n';
}

}  // namespace

void print_names(const std::string& bus, const std::string& kind) {
    if (kind != "values") {
        print_fixed_names(kind == "members");
        return;
    }
    const tool::Json state = camera_state(bus);
    for (const auto& [name, value] : state.at("values").items()) {
        if (tool::one_line(name) == name)
            std::cout << name << '\n';
    }
}

}  // namespace camera
