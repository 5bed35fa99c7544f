#pragma once

#include <memory>
#include <string>

#include "camera/models/parameter_store.hpp"
#include "camera/models/power.hpp"
#include "camera/models/temperature.hpp"
#include "camera/service/service.hpp"

namespace camera {

// One file a service. Each service starts down; what it gets by reference must outlive it.

/// The temperature controller: bus name and interface "com.tarlo.TemperatureController".
///
/// A registration belongs to the client that made it (its unique name): it goes when that client
/// leaves the bus and when the service restarts. The model keeps the sensors over restarts. Signals
/// are broadcast.
///
/// Values: "temperature.SENSOR".
[[nodiscard]] std::unique_ptr<Service> make_temperature_service(TemperatureModel& model,
                                                                ServiceContext& context);

/// The power controller as consumers see it: bus name and interface
/// "com.tarlo.PowerControl.Consumer".
///
/// A consumer belongs to the client that registered it (its unique name): it goes when that client
/// leaves the bus and when the service restarts. The model keeps the budget over restarts. The
/// service calls `SetPower` on a consumer after each request of that consumer, and whenever its
/// share changes.
///
/// Values: "power.budget"; read-only are "power.left" and, for each consumer, "power.share.NAME",
/// which is "none" while no consumer of that name is registered.
[[nodiscard]] std::unique_ptr<Service> make_power_consumer_service(PowerModel& model,
                                                                   ServiceContext& context);

/// The state of the power controller: bus name and interface "com.tarlo.PowerControl.Status", with
/// the property "PowerReceived".
///
/// Value: "power.received", any double; it outlives restarts. Setting it to the same value (NaN is
/// the same as NaN) signals nothing.
/// @param received the value at first.
[[nodiscard]] std::unique_ptr<Service> make_power_status_service(double received,
                                                                 ServiceContext& context);

/// A service with buttons that people press.
class ButtonService : public Service {
  public:
    using Service::Service;

    /// Serves the request of a button, and logs it.
    /// @throws CommandError where there is no such button, with the nearest name, or where the
    ///         camera does not serve its request.
    virtual void press(const std::string& button) = 0;
};

/// The buttons on the camera's screen: bus name and interface "com.tarlo.Onscreencontrols1".
///
/// A feature stays when the client that added it leaves the bus, until a client removes it or the
/// service restarts. The camera itself serves a button's request.
///
/// Values: "wdr.CHANNEL", "on" or "off", which is the parameter "ImageSource.ICHANNEL.Sensor.WDR"
/// and outlives restarts.
/// @param parameters with WDR of `channels` channels.
[[nodiscard]] std::unique_ptr<ButtonService> make_controls_service(ParameterStore& parameters,
                                                                   int channels,
                                                                   ServiceContext& context);

/// The texts on the video: bus name and interface "com.tarlo.PrioritizedTextOverlay".
///
/// The priority is the order of arrival, see OverlayModel. A text stays when the client that set it
/// leaves the bus; it goes when its time is over, when a client unsets it and when the service
/// restarts.
///
/// Value, read-only: "overlay.text", the text that is shown, empty for none.
[[nodiscard]] std::unique_ptr<Service> make_overlay_service(ServiceContext& context);

/// The place where clients report that a channel has video: bus name and interface
/// "com.tarlo.VideoReady1", one object a channel.
///
/// A report stays when its client leaves the bus, because the video is there all the same; it goes
/// when the service restarts.
///
/// Values, read-only: "video.CHANNEL", how many reports the channel has had.
/// @param channels at least 1.
[[nodiscard]] std::unique_ptr<Service> make_video_service(int channels, ServiceContext& context);

/// The part of the init system's manager, "org.freedesktop.systemd1", that the blocks call: the
/// state of the unit file "video-ready.service", the only one that it knows.
///
/// Value: "unit", any text without zero bytes; it outlives restarts.
/// @param unit the state at first.
[[nodiscard]] std::unique_ptr<Service> make_init_service(std::string unit, ServiceContext& context);

}  // namespace camera
