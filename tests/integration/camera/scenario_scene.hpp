#pragma once

#include <iterator>

#include "tests/integration/camera/camera_scene.hpp"

namespace test {

/// Scenarios, each played to its end by a camera on a bus of its own.
class ScenarioScene : public CameraScene {
  protected:
    /// A program, as `-- PROGRAM ARGUMENT…` wants it, that runs these lines of shell script with
    /// `camera` for the camera's program, the bus being where the script finds it.
    [[nodiscard]] static std::vector<std::string> script(const std::string& text) {
        return {"sh", "-c",
                "camera() { \"$0\" \"$@\" --bus \"$DBUS_SYSTEM_BUS_ADDRESS\"; }\n" + text,
                FENWA_CAMERA_PROGRAM};
    }

    [[nodiscard]] std::vector<std::string> command(const std::string& scenario,
                                                   const std::vector<std::string>& guest = {},
                                                   const std::string& format = "json") const {
        std::vector<std::string> arguments{"run", "--private-bus", "--format", format};
        if (!scenario.empty())
            arguments.insert(arguments.end(), {"--scenario", folder().write("s.toml", scenario)});
        if (!guest.empty())
            arguments.emplace_back("--");
        arguments.insert(arguments.end(), guest.begin(), guest.end());
        return arguments;
    }

    /// Plays a scenario; whatever comes of it, nothing may be left behind.
    Ended play(const std::string& scenario, const std::vector<std::string>& guest = {},
               const std::string& format = "json") const {
        const Ended ended = run(command(scenario, guest, format));
        EXPECT_EQ(ended.signal, 0);
        EXPECT_EQ(left_behind(), Lines{});
        EXPECT_FALSE(files_left_behind());
        return ended;
    }

    /// Starts one that is to be met by clients, and waits until its bus is there.
    void begin(const std::string& scenario) {
        camera_ = start(command(scenario));
        const auto line = camera_->wait_for_text("\"ready\"");
        ASSERT_TRUE(line) << camera_->err();
        address_ = address_in(*line);
    }

    /// Waits for its end.
    [[nodiscard]] Ended end() const {
        Ended ended = camera_->wait();
        EXPECT_EQ(left_behind(), Lines{});
        return ended;
    }

    /// The lines between "ready" and the "down" of the last service.
    [[nodiscard]] Lines between(const Ended& ended) const {
        Lines all = lines(ended.out);
        constexpr std::ptrdiff_t edge = std::ssize(camera_services) + 1;
        EXPECT_GE(std::ssize(all), 2 * edge) << ended.out;
        if (std::ssize(all) < 2 * edge)
            return all;
        return {all.begin() + edge, all.end() - edge};
    }

    std::unique_ptr<Process> camera_;  // that `begin` has started
    std::string address_;              // of its bus
};

}  // namespace test
