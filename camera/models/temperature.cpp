#include "camera/models/temperature.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "camera/models/command_error.hpp"

namespace camera {
namespace {

bool same(double a, double b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

}  // namespace

bool ChangeRegistration::update(double temperature) {
    if (same(temperature, reported_))
        return false;
    const double distance = std::abs(temperature - reported_);
    // A NaN distance or delta makes this false, which means: report.
    if (distance < delta_)
        return false;
    reported_ = temperature;
    return true;
}

LimitRegistration::LimitRegistration(double limit, bool rising, double temperature)
    : limit_(limit), rising_(rising), beyond_(is_beyond(temperature)) {}

bool LimitRegistration::is_beyond(double temperature) const {
    return rising_ ? temperature > limit_ : temperature <= limit_;
}

bool LimitRegistration::update(double temperature) {
    if (std::isnan(temperature))
        return false;
    const bool was_beyond = std::exchange(beyond_, is_beyond(temperature));
    return beyond_ && !was_beyond;
}

const Sensor* TemperatureModel::by_name(std::string_view name) const {
    const auto it = std::ranges::find(sensors_, name, &Sensor::name);
    return it == sensors_.end() ? nullptr : &*it;
}

const Sensor* TemperatureModel::by_id(std::int32_t id) const {
    const auto it = std::ranges::find(sensors_, id, &Sensor::id);
    return it == sensors_.end() ? nullptr : &*it;
}

std::vector<TemperatureNotice> TemperatureModel::set(std::string_view name, double temperature) {
    const auto sensor = std::ranges::find(sensors_, name, &Sensor::name);
    if (sensor == sensors_.end())
        throw std::out_of_range("no sensor has that name");
    sensor->temperature = temperature;

    std::vector<TemperatureNotice> due;
    for (auto& [id, registration] : registrations_) {
        if (registration.sensor_id != sensor->id)
            continue;
        const bool signals =
            std::visit([&](auto& subscription) { return subscription.update(temperature); },
                       registration.subscription);
        if (signals) {
            const bool change =
                std::holds_alternative<ChangeRegistration>(registration.subscription);
            due.push_back(
                {change ? TemperatureNotice::Kind::change : TemperatureNotice::Kind::limit, id,
                 temperature});
        }
    }
    return due;
}

std::int32_t TemperatureModel::register_change(std::string owner, std::int32_t sensor_id,
                                               double delta) {
    const Sensor& sensor = sensor_with(sensor_id);
    return add({std::move(owner), sensor_id, ChangeRegistration(delta, sensor.temperature)});
}

std::pair<std::int32_t, bool> TemperatureModel::register_limit(std::string owner,
                                                               std::int32_t sensor_id, double limit,
                                                               bool rising) {
    const Sensor& sensor = sensor_with(sensor_id);
    const LimitRegistration subscription(limit, rising, sensor.temperature);
    return {add({std::move(owner), sensor_id, subscription}), subscription.beyond()};
}

std::size_t TemperatureModel::drop_owner(std::string_view owner) {
    return std::erase_if(registrations_,
                         [&](const auto& entry) { return entry.second.owner == owner; });
}

const Sensor& TemperatureModel::sensor_with(std::int32_t id) const {
    const Sensor* sensor = by_id(id);
    if (sensor == nullptr)
        throw std::out_of_range("no sensor has that id");
    return *sensor;
}

std::int32_t TemperatureModel::add(Registration registration) {
    if (registrations_.size() >= max_registrations ||
        last_id_ == std::numeric_limits<std::int32_t>::max())
        throw CapacityError("TooManyRegistrations", max_registrations, "registrations");
    const std::int32_t id = ++last_id_;
    registrations_.emplace(id, std::move(registration));
    return id;
}

}  // namespace camera
