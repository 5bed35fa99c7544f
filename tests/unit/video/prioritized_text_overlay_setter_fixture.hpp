#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/block_driver.hpp"
#include "tests/support/layout_probe.hpp"

namespace overlay_test {

using blocks::LayoutProbe;
using blocks::PrioritizedTextOverlaySetter;
using Journal = std::vector<std::string>;
using Lines = std::vector<std::string>;

/// A call of the overlay service, with its arguments.
inline std::string overlay_call(const std::string& call) {
    return "call com.tarlo.PrioritizedTextOverlay /com/tarlo/PrioritizedTextOverlay/1 "
           "com.tarlo.PrioritizedTextOverlay " +
           call;
}

// What a block with the text "Smoke" sends.
inline std::string set(const std::string& duration) {
    return overlay_call("Set(s \"Smoke\", u " + duration + ")");
}
inline const std::string unset = "blocking " + overlay_call("Unset(s \"Smoke\")");

class PrioritizedTextOverlaySetterTest : public support::BlockTest {
  protected:
    void make(int duration) {
        make_with({{"prio_text_overlay", {"Smoke"}}, {"duration", duration}});
    }
    void make_with(const Fenwa::BlockConfiguration& config) {
        setter.emplace(recorders.tools, "setter", config);
        EXPECT_EQ(bus.take_journal(), Journal{});
        EXPECT_FALSE(setter->woken());
    }

    /// Starts the block. @returns what it sends then.
    Journal start() {
        (*setter)->start();
        return bus.take_journal();
    }
    /// Answers the call sent last, which the block gives up then.
    void answer(sd_bus_message* reply) {
        EXPECT_EQ(bus.last().deliver(reply), 0);
        EXPECT_EQ(bus.take_journal(), (Journal{bus.last().release_text}));
        EXPECT_FALSE(call_pending());
    }
    /// Puts a text without a limited duration on the video.
    void show() {
        make(0);
        EXPECT_EQ(start(), (Journal{set("0")}));
        answer(messages.reply(""));
        EXPECT_TRUE(overlay_set());
    }
    /// Destroys the block. @returns what it sends and gives up then.
    Journal destroy() {
        setter.reset();
        return bus.take_journal();
    }

    [[nodiscard]] bool overlay_set() { return LayoutProbe::overlay_set(**setter); }
    [[nodiscard]] bool call_pending() { return *LayoutProbe::call_slot_field(**setter) != nullptr; }

    std::optional<support::BlockDriver<PrioritizedTextOverlaySetter>> setter;
};

}  // namespace overlay_test
