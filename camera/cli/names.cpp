#include "camera/cli/names.hpp"

#include <numeric>
#include <set>
#include <string>

#include "camera/camera/camera.hpp"
#include "camera/cli/client.hpp"
#include "common/bus/bus.hpp"
#include "common/bus/out.hpp"
#include "common/events/print_text.hpp"
#include "common/text/line_text.hpp"

namespace camera {
namespace {

/// Of a camera that is on no bus, one a line.
std::string fixed_names(bool members) {
    common::EventPtr event;
    common::check(sd_event_new(common::out(event)), "sd_event_new");
    EventLog event_log(stdout, Format::text, false, {});
    const Camera camera(*event, event_log, default_configuration(), [] {});
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
        common::print_text(fixed_names(kind == "members"));
        return;
    }
    const common::Json state = camera_state(bus);
    std::string names;
    for (const auto& [name, value] : state.at("values").items()) {
        if (common::one_line(name) == name)
            names += name + '\n';
    }
    common::print_text(names);
}

}  // namespace camera
