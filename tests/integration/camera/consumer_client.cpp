#include "tests/integration/camera/consumer_client.hpp"

#include <nlohmann/json.hpp>

#include "camera/bus/message_json.hpp"
#include "common/bus/callback.hpp"

namespace test {
namespace {

constexpr const char* path = "/com/tarlo/Vipd/PowerConsumer";
constexpr const char* interface = "com.tarlo.Vipd.PowerConsumer";

}  // namespace

const sd_bus_vtable ConsumerClient::vtable_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("SetPower", "d", "", common::callback<&ConsumerClient::set_power>,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

ConsumerClient::ConsumerClient(const std::string& address, int channel)
    : BusClient(address, camera::power_consumers),
      service_("com.tarlo.Vipd.ch" + std::to_string(channel)),
      name_("vipd" + std::to_string(channel)) {
    common::check(sd_bus_add_object_vtable(bus(), object_.out(), path, interface, vtable_, this),
                  "sd_bus_add_object_vtable");
    common::own_name(*bus(), service_);
}

std::string ConsumerClient::register_consumer() {
    return call("Register", "sbsss", name_.c_str(), 0, service_.c_str(), path, interface);
}

std::string ConsumerClient::request(double power) {
    return call("RequestPower", "ssd", name_.c_str(), "control", power);
}

std::string ConsumerClient::unregister() {
    return call("Unregister", "s", name_.c_str());
}

int ConsumerClient::set_power(sd_bus_message& call) {
    hear("SetPower(" + camera::arguments_text(camera::body_json(call)) + ')');
    if (silent_)
        return 1;
    if (error_)
        throw common::ErrorReply(*error_, "No.");
    return sd_bus_reply_method_return(&call, "");
}

}  // namespace test
