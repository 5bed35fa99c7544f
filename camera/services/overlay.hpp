#pragma once

#include "camera/models/overlay.hpp"
#include "camera/service/service.hpp"

namespace camera {

/// The texts on the video: bus name and interface "com.tarlo.PrioritizedTextOverlay".
///
/// The priority is that of arrival, see OverlayModel. Texts stay when the client that set them
/// leaves the bus, because a text with a duration is meant to outlast it and one without is unset;
/// they go when their time is over and when the service restarts.
///
/// Value, to be seen only: "overlay.text", the text that is shown, empty for none.
class OverlayService final : public Service {
  public:
    /// `surroundings` must outlive the service.
    explicit OverlayService(ServiceContext& surroundings)
        : Service("overlay", surroundings), alarm_(surroundings.event) {}

    [[nodiscard]] std::vector<Value> values() const override;
    [[nodiscard]] common::Json parse_value(const std::string& name,
                                           const std::string& text) const override;
    void check_settable(const std::string& name) const override;
    void set_value(const std::string& name, const std::string& text) override;
    [[nodiscard]] common::Json registrations() const override;

  protected:
    [[nodiscard]] std::span<const ServedObject> objects() const override;
    void forget() override;

  private:
    static const sd_bus_vtable vtable_[];

    common::MessagePtr set(sd_bus_message& call);
    common::MessagePtr unset(sd_bus_message& call);
    /// The texts are other ones now: waits for the next end and tells that values have changed.
    void changed();
    void end_of_time();

    OverlayModel model_;
    Timers alarm_;  // for the text whose time is over next
};

}  // namespace camera
