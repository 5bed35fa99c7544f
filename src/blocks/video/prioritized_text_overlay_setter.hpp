#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "fenwa/block.hpp"
#include "src/frame/overlapping_calls.hpp"

namespace blocks {

/// Puts one text on the video when it starts, and removes it when it is destroyed, unless the text
/// has a limited duration. No ports; never runs.
///
/// Keys: "prio_text_overlay" (string, ""; empty: do nothing) and "duration" (int, 0: as long as the
/// block lives; otherwise in the service's unit, sent as an unsigned number of the same bits).
///
/// An error reply to the request counts as an answer: the text is removed all the same.
class PrioritizedTextOverlaySetter : public Fenwa::Block {
  public:
    /// @throws Fenwa::ConfigurationError when a key is mistyped.
    PrioritizedTextOverlaySetter(std::string name, const Fenwa::BlockConfiguration& config);
    /// May make one blocking call; a failure is logged.
    ~PrioritizedTextOverlaySetter() override;

    void start() override;
    void stop() override;

  private:
    friend struct LayoutProbe;

    void unset_overlay() noexcept;
    int set_overlay_callback(sd_bus_message* reply, sd_bus_error* error);

    // The order of these members is fixed; new ones go after them.
    sd_bus* bus;  ///< the framework's connection, from `start()` on
    std::string text;
    std::int32_t duration;
    std::atomic<bool> overlay_set;  ///< the request has been answered
    Fenwa::Slot call_slot;

    SupersededSlots superseded_calls;
};

}  // namespace blocks
