#pragma once

#include "camera/models/temperature.hpp"
#include "camera/service/service.hpp"

namespace camera {

/// The camera's temperature controller: bus name and interface "com.tarlo.TemperatureController".
///
/// Registrations belong to the client that made them (its unique name): they go when it leaves
/// the bus and when the service restarts. Signals are broadcast.
///
/// Values: "temperature.SENSOR".
class TemperatureService final : public Service {
  public:
    /// Both must outlive the service; the model keeps the sensors over restarts.
    TemperatureService(TemperatureModel& model, ServiceContext& surroundings)
        : Service("temperature", surroundings), model_(model) {}

    [[nodiscard]] std::vector<Value> values() const override;
    [[nodiscard]] bool claims(const std::string& value) const override;
    [[nodiscard]] common::Json parse_value(const std::string& name,
                                           const std::string& text) const override;
    void set_value(const std::string& name, const std::string& text) override;
    [[nodiscard]] common::Json registrations() const override;

  protected:
    [[nodiscard]] std::span<const ServedObject> objects() const override;
    std::size_t client_left(const std::string& unique_name) override {
        return model_.drop_owner(unique_name);
    }
    void forget() override { model_.drop_all(); }

  private:
    static const sd_bus_vtable vtable_[];

    common::MessagePtr get_temperature_id_from_name(sd_bus_message& call);
    common::MessagePtr get_temperature(sd_bus_message& call);
    common::MessagePtr register_for_change(sd_bus_message& call);
    common::MessagePtr register_for_limit(sd_bus_message& call);
    [[nodiscard]] const Sensor& sensor_with(std::int32_t id) const;
    /// @throws CommandError where the value is no sensor's.
    [[nodiscard]] const Sensor& sensor_of(const std::string& value) const;
    [[nodiscard]] static double parse_temperature(const std::string& text);

    TemperatureModel& model_;
};

}  // namespace camera
