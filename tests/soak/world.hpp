#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/text/json.hpp"
#include "tests/soak/observer.hpp"
#include "tests/soak/scene.hpp"
#include "tests/soak/settings.hpp"

namespace soak {

/// The values that the camera was set to.
struct Values {
    double temperature = 36.5;
    double received = 25.0;
    double budget = 20.0;
};

/// The state that must be reached once everything is quiet.
struct Wanted {
    Settings settings;
    Values values;
    std::uint64_t video_times = 1;  ///< reports of ready video, at least
    std::uint64_t ticks = 0;        ///< lines of the timer, at least
};

/// Something that is not as it must be.
struct Difference {
    /// Whose output or registration it is; "earlier greeting" for a text that has stayed.
    std::string block;
    std::string text;
};

/// Compares the outputs of the host, as their last lines and as the host itself has them, with what
/// the camera's services say, and the registrations at the services with what the blocks of the
/// graph should have made.
[[nodiscard]] std::vector<Difference> differences(const Scene& scene, const Wanted& wanted);

/// The host's status of a block, for a report.
[[nodiscard]] std::string status_of(const Scene& scene, const std::string& block);

/// The number of times that the video of channel 0 was reported since its service came up.
[[nodiscard]] std::uint64_t video_times(const common::Json& camera);

}  // namespace soak
