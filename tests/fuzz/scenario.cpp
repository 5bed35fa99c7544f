// A scenario of a simulated camera; one without mistakes is played, without waiting. Its programs
// are not run: an input could name any program of the machine.

#include <csignal>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <variant>

#include "camera/process/child.hpp"
#include "camera/scenario/player.hpp"
#include "camera/scenario/reader.hpp"
#include "tests/fuzz/camera_without_bus.hpp"
#include "tests/fuzz/memory_file.hpp"

namespace {

/// Longer scenarios are played to here.
constexpr int max_turns = 1000;

/// Takes the programs and the waiting out of a scenario.
void shorten(camera::Scenario& scenario) {
    constexpr camera::Seconds at_once{0};
    for (camera::Step& step : scenario.steps) {
        for (std::optional<camera::Seconds>* const time : {&step.at, &step.after}) {
            if (*time)
                *time = at_once;
        }
        std::erase_if(step.actions, [](const camera::Action& action) {
            return std::holds_alternative<camera::RunProgram>(action);
        });
        for (camera::Action& action : step.actions) {
            if (auto* const expectation = std::get_if<camera::Expectation>(&action))
                expectation->within = at_once;
            else if (auto* const reply = std::get_if<camera::Reply>(&action))
                reply->within = at_once;
            else if (auto* const ramp = std::get_if<camera::Ramp>(&action))
                ramp->over = at_once;
        }
    }
}

void play(const camera::Scenario& scenario, fuzz::CameraWithoutBus& stage,
          const camera::ProgramPlace& programs) {
    bool ended = false;
    camera::ScenarioPlayer player(
        scenario, {stage.camera, stage.event_log, *stage.event, programs, nullptr},
        [&ended](common::ExitCode /*code*/, const std::string& /*sentence*/) { ended = true; });
    try {
        player.start();
    } catch (const common::Failure&) {
        return;  // it looks at a host, and there is no bus
    }
    for (int turns = 0; !ended && turns < max_turns; ++turns)
        common::check(sd_event_run(stage.event.get(), 0), "the loop");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigprocmask(SIG_BLOCK, &child, nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::MemoryFile file(data, size);
    fuzz::CameraWithoutBus stage(camera::default_configuration());
    common::Diagnostics diagnostics(file.path());
    camera::Scenario scenario = camera::read_scenario(file.path(), stage.camera, diagnostics);
    std::ostringstream mistakes;
    diagnostics.print(mistakes, true);
    if (diagnostics.errors() > 0)
        return 0;
    shorten(scenario);
    camera::Reaper reaper(*stage.event, [] {});
    play(scenario, stage, {reaper});
    return 0;
}
