#include "camera/scenario/reader.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "camera/scenario/step_reader.hpp"
#include "common/toml/document.hpp"

namespace camera {
namespace {

/// Requires the times in 'at' to ascend: a step with an earlier time would come too late.
void check_order(const std::vector<Step>& steps, common::Diagnostics& diagnostics) {
    Seconds latest{0};
    for (const Step& step : steps) {
        if (!step.at)
            continue;
        if (*step.at < latest)
            diagnostics.error(step.location,
                              fmt::format("this step at {} s comes after a step at {} s",
                                          common::Json(step.at->count()).dump(),
                                          common::Json(latest.count()).dump()));
        latest = std::max(latest, *step.at);
    }
}

/// Reads the names of services.
std::optional<std::set<std::string>> read_services(common::TableReader& reader, const char* key,
                                                   const Camera& camera,
                                                   common::Diagnostics& diagnostics) {
    const auto names = reader.strings(key);
    if (!names)
        return std::nullopt;
    for (const std::string& name : *names) {
        try {
            camera.check_service(name);
        } catch (const CommandError& error) {
            diagnostics.error(reader.location(key), error.sentence(), error.help());
        }
    }
    return std::set<std::string>(names->begin(), names->end());
}

std::optional<Seconds> read_timeout(common::TableReader& reader, common::Diagnostics& diagnostics) {
    const auto timeout = reader.number("timeout");
    if (!timeout)
        return std::nullopt;
    // In a form that is false for NaN.
    if (!(*timeout > 0.0 && *timeout <= max_scenario_time.count())) {
        diagnostics.error(reader.location("timeout"),
                          fmt::format("'timeout' must be a time in seconds above 0 and at most {}, "
                                      "not {}",
                                      common::Json(max_scenario_time.count()).dump(),
                                      common::json_number(*timeout).dump()));
        return std::nullopt;
    }
    return Seconds(*timeout);
}

}  // namespace

Scenario read_scenario(const std::string& path, const Camera& camera,
                       common::Diagnostics& diagnostics) {
    Scenario scenario{path};
    const auto document = common::read_toml(path, diagnostics);
    if (!document)
        return scenario;
    common::TableReader reader(*document, "the scenario", diagnostics);
    const toml::array* steps = reader.array("steps");
    if (steps == nullptr && !document->contains("steps"))
        reader.missing("steps");
    if (steps != nullptr) {
        StepReader step_reader(camera, diagnostics);
        for (const toml::node& node : *steps)
            scenario.steps.push_back(step_reader.read(node));
    }
    scenario.timeout = read_timeout(reader, diagnostics);
    scenario.down =
        read_services(reader, "down", camera, diagnostics).value_or(std::set<std::string>{});
    scenario.activatable = read_services(reader, "activatable", camera, diagnostics);
    check_order(scenario.steps, diagnostics);
    reader.report_unknown_keys();
    return scenario;
}

}  // namespace camera
