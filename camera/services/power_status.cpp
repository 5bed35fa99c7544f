#include <fmt/core.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "camera/models/number_text.hpp"
#include "camera/services/services.hpp"

namespace camera {
namespace {

constexpr const char* received_value = "power.received";
constexpr const char* received_property = "PowerReceived";

common::Json parse_power(const std::string& text) {
    return common::json_number(number_from_text(text, "power"));
}

class PowerStatusService final : public Service {
  public:
    PowerStatusService(double received, ServiceContext& context)
        : Service("power-status", context), received_(received) {
        serve_object(power_status, vtable_);
    }

    [[nodiscard]] std::vector<Value> values() override {
        return {
            {received_value, common::share(common::json_number(received_)), parse_power,
             [this](const std::string& text) { set_received(number_from_text(text, "power")); }}};
    }

  private:
    static const sd_bus_vtable vtable_[];

    void get_received(sd_bus_message& reply) {
        common::check(sd_bus_message_append(&reply, "d", received_), "sd_bus_message_append");
    }

    void set_received(double received) {
        const bool same = received == received_ || (std::isnan(received) && std::isnan(received_));
        received_ = received;
        event_log().value_set(name(), received_value, common::json_number(received),
                              fmt::format("the power received is {}", number_text(received)));
        if (!same)
            emit_changed(power_status, received_property);
    }

    double received_;
};

const sd_bus_vtable PowerStatusService::vtable_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_PROPERTY(received_property, "d", append_property<&PowerStatusService::get_received>, 0,
                    SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
    SD_BUS_VTABLE_END,
};

}  // namespace

std::unique_ptr<Service> make_power_status_service(double received, ServiceContext& context) {
    return std::make_unique<PowerStatusService>(received, context);
}

}  // namespace camera
