#pragma once

#include "tests/integration/blocks/scene.hpp"

namespace test {

// Each of the three blocks with its service.

/// An OnScreenControls that publishes the buttons of channel 0.
class ControlsScene : public BlockScene {
  protected:
    explicit ControlsScene(const std::string& keys = "channel = 0\nwdr = true\n")
        : BlockScene({"com.tarlo.Onscreencontrols1", "GetNameOwner",
                      "[blocks.controls]\ntype = \"OnScreenControls\"\n" + keys}) {}
};

/// A PrioritizedTextOverlaySetter of the text "Hello".
class OverlayScene : public BlockScene {
  protected:
    OverlayScene() : BlockScene({"com.tarlo.PrioritizedTextOverlay", "Set", overlay_with("")}) {}

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
        : BlockScene({"com.tarlo.VideoReady1", "GetUnitFileState",
                      "[blocks.video]\ntype = \"VideoReady\"\nchannel = 1\n"}) {}
};

}  // namespace test
