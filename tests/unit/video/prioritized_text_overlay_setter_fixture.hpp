#pragma once

#include <string>

#include "tests/unit/block_fixture.hpp"

extern template class support::BlockFixture<blocks::PrioritizedTextOverlaySetter>;

namespace overlay_test {

using blocks::PrioritizedTextOverlaySetter;
using support::Journal;

/// A call of the overlay service, with its arguments.
inline std::string overlay_call(const std::string& call) {
    return support::service_call("com.tarlo.PrioritizedTextOverlay",
                                 "/com/tarlo/PrioritizedTextOverlay/1", call);
}

// The calls of a block with the text "Smoke".
inline std::string set(const std::string& duration) {
    return overlay_call("Set(s \"Smoke\", u " + duration + ")");
}
inline const std::string unset = "blocking " + overlay_call("Unset(s \"Smoke\")");

/// The effects of a removal of the text that succeeds without a reply.
inline const Journal removal{unset, "free the error"};

class PrioritizedTextOverlaySetterTest
    : public support::BlockFixture<PrioritizedTextOverlaySetter> {
  protected:
    void make(int duration) {
        make_with({{"prio_text_overlay", {"Smoke"}}, {"duration", duration}});
    }
    void make_with(const Fenwa::BlockConfiguration& config) {
        build("setter", support::observed(config));
        EXPECT_EQ(take(),
                  (Journal{"string prio_text_overlay or a default", "int duration or a default"}));
    }

    // Each takes a block without a limited duration one step further.

    /// The request is sending 1.
    void request() {
        make(0);
        EXPECT_EQ(start(), Journal{set("0")});
    }
    /// Puts the text on the video.
    void show() {
        request();
        EXPECT_EQ(answer(1), Journal{"release #1 Set"});
        EXPECT_TRUE(overlay_set());
    }

    Journal answer(std::size_t sending) {
        return deliver(bus.sending(sending), messages.reply(""));
    }
    [[nodiscard]] bool overlay_set() { return LayoutProbe::overlay_set(block()); }
};

}  // namespace overlay_test
