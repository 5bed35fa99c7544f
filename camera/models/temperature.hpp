#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace camera {

/// A temperature sensor of the camera. Temperatures have the unit of the user; nothing is
/// converted.
struct Sensor {
    std::string name;
    std::int32_t id = 0;
    double temperature = 0.0;
};

/// A client's subscription to changes of at least `delta`.
class ChangeRegistration {
  public:
    /// The temperature at registration counts as reported. With a `delta` of 0, below 0 or NaN
    /// every change is reported.
    ChangeRegistration(double delta, double temperature) : delta_(delta), reported_(temperature) {}

    /// Whether the new temperature must be signalled; then it counts as reported. The distance is
    /// compared as a double: 31.8 to 32.3 is a little less than 0.5. A change to or from NaN is
    /// always reported; NaN to NaN is not a change.
    [[nodiscard]] bool update(double temperature);

    [[nodiscard]] double delta() const noexcept { return delta_; }
    [[nodiscard]] double reported() const noexcept { return reported_; }

  private:
    double delta_;
    double reported_;
};

/// A client's subscription to crossings of a limit in one direction.
///
/// A temperature is above a limit when it is greater, and not above it when it is equal or less: so
/// it is beyond each limit in exactly one of the two directions. A NaN does not cross a limit.
class LimitRegistration {
  public:
    /// `rising`: crossing means coming above `limit`; otherwise coming down to it or below.
    LimitRegistration(double limit, bool rising, double temperature);

    /// Whether the new temperature crosses the limit in its direction; again only after it has
    /// crossed back.
    [[nodiscard]] bool update(double temperature);

    /// Whether the temperature is beyond the limit in its direction.
    [[nodiscard]] bool beyond() const noexcept { return beyond_; }
    [[nodiscard]] double limit() const noexcept { return limit_; }
    [[nodiscard]] bool rising() const noexcept { return rising_; }

  private:
    [[nodiscard]] bool is_beyond(double temperature) const;

    double limit_;
    bool rising_;
    bool beyond_ = false;
};

/// A registration and its client.
struct Registration {
    std::string owner;  ///< unique name of the client
    std::int32_t sensor_id;
    std::variant<ChangeRegistration, LimitRegistration> subscription;
};

/// A signal that must be sent.
struct TemperatureNotice {
    enum class Kind { change, limit };

    Kind kind;
    std::int32_t id;     ///< the registration's
    double temperature;  ///< of the sensor now
};

/// Sensors, and the registrations of clients. Knows no bus.
class TemperatureModel {
  public:
    /// A client that registers for ever must not take all memory.
    static constexpr std::size_t max_registrations = 65536;

    explicit TemperatureModel(std::vector<Sensor> sensors) : sensors_(std::move(sensors)) {}

    [[nodiscard]] const std::vector<Sensor>& sensors() const noexcept { return sensors_; }
    /// Null where there is none; valid as long as the model.
    [[nodiscard]] const Sensor* by_name(std::string_view name) const;
    [[nodiscard]] const Sensor* by_id(std::int32_t id) const;

    /// Sets a temperature and returns the signals that are due, in the order of registration.
    /// @throws std::out_of_range when no sensor has that name.
    std::vector<TemperatureNotice> set(std::string_view name, double temperature);

    /// Both return a positive id that no other registration of this camera has had, restarts
    /// included: a late signal cannot be mistaken for one of a newer registration.
    /// @throws std::out_of_range when no sensor has that id, CapacityError when full.
    std::int32_t register_change(std::string owner, std::int32_t sensor_id, double delta);
    /// The flag is true where the temperature is beyond the limit already.
    std::pair<std::int32_t, bool> register_limit(std::string owner, std::int32_t sensor_id,
                                                 double limit, bool rising);

    /// Forgets a client's registrations; returns how many there were.
    std::size_t drop_owner(std::string_view owner);
    /// Forgets all registrations, as a restart does. Sensors keep their temperatures.
    void drop_all() noexcept { registrations_.clear(); }

    [[nodiscard]] const std::map<std::int32_t, Registration>& registrations() const noexcept {
        return registrations_;
    }

  private:
    const Sensor& sensor_with(std::int32_t id) const;
    std::int32_t add(Registration registration);

    std::vector<Sensor> sensors_;
    std::map<std::int32_t, Registration> registrations_;
    std::int32_t last_id_ = 0;
};

}  // namespace camera
