#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>

#include "camera/bus/timers.hpp"
#include "camera/camera/camera.hpp"
#include "camera/models/command_error.hpp"
#include "camera/service/event_log.hpp"
#include "common/bus/bus.hpp"

namespace camera {

/// A camera that is not on any bus, with its event log in a string.
class CameraTest : public ::testing::Test {
  protected:
    /// The event log so far, without the times in front of the lines.
    std::string told() {
        std::string text;
        std::istringstream all(lines_.str());
        for (std::string line; std::getline(all, line);)
            text += line.substr(10) + '\n';
        return text;
    }

    /// The sentence with which a command is refused.
    template <class Command>
    static std::string refusal(Command&& command) {
        try {
            command();
        } catch (const CommandError& refusal) {
            return refusal.what();
        }
        return "no refusal";
    }

    /// Runs the loop until nothing is due for this long.
    void run_loop(std::chrono::milliseconds quiet) {
        const auto limit = static_cast<std::uint64_t>(
            std::chrono::duration_cast<std::chrono::microseconds>(quiet).count());
        while (common::check(sd_event_run(event_.get(), limit), "sd_event_run") > 0) {
        }
    }

    common::EventPtr event_ = new_event();
    std::ostringstream lines_;
    common::StandardOutput out_{[] {}, lines_};
    EventLog event_log_{out_, common::EventFormat::text, common::ColorChoice::never};
    Camera camera_{*event_, event_log_, default_configuration(), [] {}};
};

}  // namespace camera
