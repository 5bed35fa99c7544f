#include "camera/scenario/reader.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <nlohmann/json.hpp>

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

}  // namespace

Scenario read_scenario(const std::string& path, const Camera& camera,
                       common::Diagnostics& diagnostics) {
    Scenario scenario{path, {}};
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
    check_order(scenario.steps, diagnostics);
    reader.report_unknown_keys();
    return scenario;
}

}  // namespace camera
