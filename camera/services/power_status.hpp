#pragma once

#include "camera/service/service.hpp"

namespace camera {

/// What the camera's power controller tells of itself: bus name and interface
/// "com.tarlo.PowerControl.Status", with the property "PowerReceived".
///
/// Value: "power.received", any double; it outlives restarts.
class PowerStatusService final : public Service {
  public:
    /// `surroundings` must outlive the service.
    PowerStatusService(double received, ServiceContext& surroundings)
        : Service("power-status", surroundings), received_(received) {}

    [[nodiscard]] std::vector<Value> values() const override;
    [[nodiscard]] common::Json parse_value(const std::string& name,
                                           const std::string& text) const override;
    /// Signals nothing where the value is the same as before; so are NaN and NaN.
    void set_value(const std::string& name, const std::string& text) override;

  protected:
    [[nodiscard]] std::span<const ServedObject> objects() const override;

  private:
    static const sd_bus_vtable vtable_[];
    static int get_received(sd_bus* bus, const char* path, const char* interface,
                            const char* property, sd_bus_message* reply, void* userdata,
                            sd_bus_error* error) noexcept;

    double received_;
};

}  // namespace camera
