#pragma once

#include <array>
#include <string>

#include "fenwa/registry.hpp"
#include "src/blocks/power/power_consumer.hpp"
#include "src/blocks/power/power_monitor.hpp"
#include "src/blocks/temperature/temperature_monitor.hpp"
#include "src/blocks/temperature/temperature_reader.hpp"
#include "src/blocks/video/on_screen_controls.hpp"
#include "src/blocks/video/prioritized_text_overlay_setter.hpp"
#include "src/blocks/video/video_ready.hpp"

namespace blocks {

/// One block type of the library: its name in graphs, and the function that registers it.
struct Registration {
    const char* type_name;
    void (Fenwa::IRegistry::*register_block)(std::string type_name);
};

template <class T>
constexpr Registration registration(const char* type_name) {
    return {type_name, &Fenwa::IRegistry::register_block<T>};
}

/// Every block type, in the order in which they are registered: alphabetically.
inline constexpr std::array registration_table{
    registration<OnScreenControls>("OnScreenControls"),
    registration<PowerConsumer>("PowerConsumer"),
    registration<PowerMonitor>("PowerMonitor"),
    registration<PrioritizedTextOverlaySetter>("PrioritizedTextOverlaySetter"),
    registration<TemperatureMonitor>("TemperatureMonitor"),
    registration<TemperatureReader>("TemperatureReader"),
    registration<VideoReady>("VideoReady"),
};

}  // namespace blocks
