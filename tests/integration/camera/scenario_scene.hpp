#pragma once

#include <iterator>

#include "tests/integration/camera/camera_scene.hpp"

namespace test {

/// Scenarios, each played to its end by a camera on a bus of its own.
class ScenarioScene : public CameraScene {
  protected:
    /// A program, as `-- PROGRAM ARGUMENT…` wants it, that runs these lines of shell script with
    /// `camera` for the camera's program, the bus being where the script finds it.
    [[nodiscard]] static Lines script(const std::string& text) {
        return {"sh", "-c",
                "camera() { \"$0\" \"$@\" --bus \"$DBUS_SYSTEM_BUS_ADDRESS\"; }\n" + text,
                FENWA_CAMERA_PROGRAM};
    }

    /// The options that play a scenario from its text.
    [[nodiscard]] Lines scenario(const std::string& text) const {
        return {"--scenario", folder().write("s.toml", text)};
    }

    /// The command that plays a scenario, if not empty, beside a program, if not empty.
    [[nodiscard]] Lines play_command(const std::string& text, const Lines& program = {},
                                     const std::string& format = "json") const {
        Lines arguments{"run", "--private-bus", "--verbose", "--format", format};
        if (!text.empty())
            arguments = arguments + scenario(text);
        return program.empty() ? arguments : arguments + Lines{"--"} + program;
    }

    /// Plays a scenario to its end, after which no program and no file may be left.
    Ended play(const std::string& text, const Lines& program = {},
               const std::string& format = "json") const {
        Ended ended = run(play_command(text, program, format));
        EXPECT_EQ(ended.signal, 0);
        expect_nothing_left();
        return ended;
    }
    /// The same where it must end with exit code 0 and an empty stderr.
    Ended play_well(const std::string& text, const Lines& program = {},
                    const std::string& format = "json") const {
        Ended ended = play(text, program, format);
        EXPECT_EQ(ended.code, 0);
        EXPECT_EQ(ended.err, "");
        return ended;
    }

    /// Starts one that is to be met by clients, and waits until its bus is there.
    void begin(const std::string& text) { open({.run = scenario(text), .own_bus = true}); }
    /// Waits for its end.
    [[nodiscard]] Ended end() {
        Ended ended = camera().wait();
        expect_nothing_left();
        return ended;
    }
    /// The same where the scenario must succeed.
    Ended end_well() {
        Ended ended = end();
        EXPECT_EQ(ended.code, 0);
        EXPECT_EQ(ended.err, "");
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
};

}  // namespace test
