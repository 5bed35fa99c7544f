#pragma once

#include "camera/models/feature_store.hpp"
#include "camera/models/parameter_store.hpp"
#include "camera/service/service.hpp"

namespace camera {

/// The buttons on the camera's screen: bus name and interface "com.tarlo.Onscreencontrols1".
///
/// Features stay when the client that added them leaves the bus, because whoever adds them removes
/// them; they go when the service restarts. A button's request is served by the camera itself.
///
/// Values: "wdr.CHANNEL", "on" or "off"; it is the parameter "ImageSource.ICHANNEL.Sensor.WDR" and
/// outlives restarts.
class ControlsService final : public Service {
  public:
    /// `parameters`, with WDR of so many channels, and `surroundings` must outlive the service.
    ControlsService(ParameterStore& parameters, int channels, ServiceContext& surroundings)
        : Service("controls", surroundings), parameters_(parameters), channels_(channels) {}

    /// Does what a button asks for, and tells it.
    /// @throws CommandError where there is no such button, with the nearest, or where the camera
    /// does
    ///         not serve its request.
    void press(const std::string& button);

    [[nodiscard]] std::vector<Value> values() const override;
    [[nodiscard]] common::Json parse_value(const std::string& name,
                                           const std::string& text) const override;
    void set_value(const std::string& name, const std::string& text) override;
    [[nodiscard]] common::Json registrations() const override;

  protected:
    [[nodiscard]] std::span<const ServedObject> objects() const override;
    void forget() override { features_.drop_all(); }

  private:
    static const sd_bus_vtable vtable_[];

    common::MessagePtr add_features(sd_bus_message& call);
    common::MessagePtr list_added_features(sd_bus_message& call);
    common::MessagePtr remove_features(sd_bus_message& call);
    /// @throws CommandError with the nearest name where there is no such button.
    [[nodiscard]] const Button& button_named(const std::string& name) const;
    /// The parameter behind a value of ours.
    [[nodiscard]] std::string parameter_of(const std::string& value) const;
    /// Tells the value behind a parameter that was set.
    void tell(const ParameterUpdate& update);

    ParameterStore& parameters_;
    int channels_;
    FeatureStore features_;
};

}  // namespace camera
