#include "camera/services/power_status.hpp"

#include <fmt/core.h>

#include <cmath>

#include "camera/models/number_text.hpp"
#include "common/text/number_text.hpp"

namespace camera {
namespace {

using common::Json;

constexpr const char* received_value = "power.received";
constexpr const char* received_property = "PowerReceived";

}  // namespace

const sd_bus_vtable PowerStatusService::vtable_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY(received_property, "d", get_received, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END,
};

int PowerStatusService::get_received(sd_bus* /*bus*/, const char* /*path*/,
                                     const char* /*interface*/, const char* /*property*/,
                                     sd_bus_message* reply, void* userdata,
                                     sd_bus_error* /*error*/) noexcept {
    return sd_bus_message_append(
        reply, "d", static_cast<PowerStatusService*>(static_cast<Service*>(userdata))->received_);
}

std::span<const ServedObject> PowerStatusService::objects() const {
    static const ServedObject object[] = {{power_status, vtable_}};
    return object;
}

std::vector<Value> PowerStatusService::values() const {
    return {{received_value, common::json_number(received_)}};
}

Json PowerStatusService::parse_value(const std::string& /*name*/, const std::string& text) const {
    const std::optional<double> power = common::parse_number<double>(text);
    if (!power)
        throw CommandError(
            fmt::format("'{}' is not a valid power: expected a number, nan, inf or -inf", text));
    return common::json_number(*power);
}

void PowerStatusService::set_value(const std::string& name, const std::string& text) {
    (void)parse_value(name, text);
    const double received = *common::parse_number<double>(text);
    const bool same = received == received_ || (std::isnan(received) && std::isnan(received_));
    received_ = received;
    event_log().value_set(this->name(), name, common::json_number(received),
                          fmt::format("the power received is {}", number_text(received)));
    if (!same)
        emit_changed(power_status, received_property);
}

}  // namespace camera
