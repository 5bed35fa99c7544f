#pragma once

#include "tests/integration/blocks/scene.hpp"
#include "tests/integration/camera/wdr_document.hpp"

namespace test {

// Each of the three blocks with its service.

/// An OnScreenControls that publishes the buttons of channel 0.
class ControlsScene : public BlockScene {
  protected:
    ControlsScene()
        : BlockScene(
              {"controls", "com.tarlo.Onscreencontrols1", "GetNameOwner",
               "[blocks.controls]\ntype = \"OnScreenControls\"\nchannel = 0\nwdr = true\n"}) {}
};

/// The document of channel 0 is added and the answer comes; the feature is taken away.
inline Lines adds(const std::string& service = "service") {
    return {R"(client calls service: AddFeatures("en-us", "English", )" +
                common::json_line(wdr_document(1)) + ", {})",
            service + " replies to client: ()"};
}
inline const std::string remove_call =
    R"(client calls service: RemoveFeatures("WDR1", "en-us", {}))";

/// A PrioritizedTextOverlaySetter of the text "Hello".
class OverlayScene : public BlockScene {
  protected:
    OverlayScene()
        : BlockScene({"overlay", "com.tarlo.PrioritizedTextOverlay", "Set", overlay_with("")}) {}

    static std::string overlay_with(const std::string& keys) {
        return "[blocks.overlay]\ntype = \"PrioritizedTextOverlaySetter\"\n"
               "prio_text_overlay = \"Hello\"\n" +
               keys;
    }
};

/// A VideoReady of channel 1, whose unit is known.
class VideoScene : public BlockScene {
  protected:
    VideoScene()
        : BlockScene({"video", "com.tarlo.VideoReady1", "GetUnitFileState",
                      "[blocks.video]\ntype = \"VideoReady\"\nchannel = 1\n"}) {}
};

inline const std::string signal_call = R"(client calls service: SignalVideoReady("vipd"))";

}  // namespace test
