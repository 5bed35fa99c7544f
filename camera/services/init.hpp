#pragma once

#include <utility>

#include "camera/service/service.hpp"

namespace camera {

/// What is asked of the manager of the init system, "org.freedesktop.systemd1": the state of the
/// unit file "video-ready.service". It knows no other one.
///
/// Value: "unit", any text; it outlives restarts.
class InitService final : public Service {
  public:
    /// `unit` is the state of the unit file; `surroundings` must outlive the service.
    InitService(std::string unit, ServiceContext& surroundings)
        : Service("init", surroundings), unit_(std::move(unit)) {}

    [[nodiscard]] bool belongs_to_machine() const override { return true; }
    [[nodiscard]] std::vector<Value> values() const override;
    [[nodiscard]] common::Json parse_value(const std::string& name,
                                           const std::string& text) const override;
    void set_value(const std::string& name, const std::string& text) override;

  protected:
    [[nodiscard]] std::span<const ServedObject> objects() const override;

  private:
    static const sd_bus_vtable vtable_[];

    common::MessagePtr get_unit_file_state(sd_bus_message& call);

    std::string unit_;
};

}  // namespace camera
