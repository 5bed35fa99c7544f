#include "tests/integration/host/false_host.hpp"

#include <chrono>

#include "host/control/names.hpp"

namespace test {

FalseHost::FalseHost(const std::string& address, std::string answer)
    : answer_(std::move(answer)), bus_(common::open_bus(address, std::chrono::seconds(10))) {
    common::check(sd_bus_add_filter(bus_.get(), nullptr, on_call, this), "filter");
    common::own_name(*bus_, host::control_name);
    thread_ = std::thread([this] {
        while (!ends_) {
            if (sd_bus_process(bus_.get(), nullptr) == 0)
                sd_bus_wait(bus_.get(), 10'000);
        }
    });
}

FalseHost::~FalseHost() {
    ends_ = true;
    thread_.join();
}

int FalseHost::on_call(sd_bus_message* call, void* userdata, sd_bus_error* /*error*/) {
    if (sd_bus_message_is_method_call(call, host::control_interface, nullptr) <= 0)
        return 0;
    sd_bus_reply_method_return(call, "s", static_cast<FalseHost*>(userdata)->answer_.c_str());
    return 1;
}

}  // namespace test
