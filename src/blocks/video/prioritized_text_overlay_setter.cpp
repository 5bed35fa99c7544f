#include "src/blocks/video/prioritized_text_overlay_setter.hpp"

#include "fenwa/bus_call.hpp"
#include "src/frame/failure_line.hpp"

namespace blocks {
namespace {

/// The platform's service that shows texts over the video.
constexpr Fenwa::BusService text_overlay{"com.tarlo.PrioritizedTextOverlay",
                                         "/com/tarlo/PrioritizedTextOverlay/1",
                                         "com.tarlo.PrioritizedTextOverlay"};

constexpr const char* set_failure_prefix = "Could not set prioritized text overlay: ";
constexpr const char* unset_failure_prefix = "Could not unset prioritized text overlay: ";

}  // namespace

PrioritizedTextOverlaySetter::PrioritizedTextOverlaySetter(std::string name,
                                                           const Fenwa::BlockConfiguration& config)
    : Fenwa::Block(std::move(name), config),
      bus(nullptr),
      text(config.getString("prio_text_overlay", "")),
      duration(config.getInt("duration", 0)),
      overlay_set(false) {}

PrioritizedTextOverlaySetter::~PrioritizedTextOverlaySetter() {
    if (duration == 0 && overlay_set)
        unset_overlay();
    call_slot.reset();
}

void PrioritizedTextOverlaySetter::start() {
    if (text.empty())
        return;
    bus = Fenwa::bus_of(*this);
    superseded_calls.keep(call_slot);
    const int r = Fenwa::call_async<&PrioritizedTextOverlaySetter::set_overlay_callback>(
        bus, call_slot, text_overlay, "Set", *this, "su", text.c_str(),
        static_cast<std::uint32_t>(duration));
    if (r < 0)
        log_errno(Level::warning, set_failure_prefix, r);
}

void PrioritizedTextOverlaySetter::stop() {
    call_slot.reset();
    superseded_calls.release();
}

void PrioritizedTextOverlaySetter::unset_overlay() noexcept {
    sd_bus_error error = SD_BUS_ERROR_NULL;
    Fenwa::Message reply;
    const int r =
        sd_bus_call_method(bus, text_overlay.destination, text_overlay.path, text_overlay.interface,
                           "Unset", &error, reply.out(), "s", text.c_str());
    if (sd_bus_error_is_set(&error) > 0)
        log_error_argument(Level::warning, unset_failure_prefix, error);
    else if (r < 0)
        log_errno(Level::warning, unset_failure_prefix, r);
    reply.reset();
    sd_bus_error_free(&error);
}

int PrioritizedTextOverlaySetter::set_overlay_callback(sd_bus_message* /*reply*/,
                                                       sd_bus_error* error) {
    // sd-bus passes an empty error argument, so an error reply counts as an answer.
    if (sd_bus_error_is_set(error) > 0)
        log_error_argument(Level::warning, set_failure_prefix, *error);
    else
        overlay_set = true;
    call_slot.reset();
    return 0;
}

}  // namespace blocks
