#pragma once

#include <sstream>

#include "camera/bus/timers.hpp"
#include "camera/camera/camera.hpp"
#include "camera/service/event_log.hpp"
#include "common/events/standard_output.hpp"

namespace fuzz {

/// A camera that is on no bus, and whose event lines nobody reads.
struct CameraWithoutBus {
    explicit CameraWithoutBus(const camera::Configuration& configuration)
        : camera(*event, event_log, configuration, [] {}) {}

    common::EventPtr event = camera::new_event();
    std::ostringstream lines{};
    common::StandardOutput out{[] {}, lines};
    camera::EventLog event_log{out, common::EventFormat::json, common::ColorChoice::never};
    camera::Camera camera;
};

}  // namespace fuzz
