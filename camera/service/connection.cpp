#include "camera/service/connection.hpp"

#include <utility>

#include "common/bus/callback.hpp"

namespace camera {

Connection::Connection(sd_event& event, const std::string& address, std::function<void()> lost)
    : lost_(std::move(lost)), bus_(common::open_bus(address, bus_timeout)) {
    common::check(sd_bus_add_filter(bus_.get(), filter_.out(),
                                    common::callback<&Connection::on_message>, this),
                  "sd_bus_add_filter");
    const char* unique_name = nullptr;
    common::check(sd_bus_get_unique_name(bus_.get(), &unique_name), "sd_bus_get_unique_name");
    unique_name_ = unique_name;
    common::check(sd_bus_attach_event(bus_.get(), &event, SD_EVENT_PRIORITY_NORMAL),
                  "cannot serve the bus");
}

void Connection::close() {
    (void)common::finish_sending(*bus_, std::chrono::steady_clock::now() + bus_timeout);
}

int Connection::on_message(sd_bus_message& message) {
    if (sd_bus_message_is_signal(&message, "org.freedesktop.DBus.Local", "Disconnected") > 0)
        lost_();
    return 0;
}

}  // namespace camera
