#include "fenwa/testkit/private_bus.hpp"

#include "common/bus/private_bus.hpp"
#include "framework/algo-tools/connection_tools.hpp"
#include "framework/testkit/connection.hpp"
#include "framework/testkit/sdbus_result.hpp"

namespace Fenwa::testkit {

struct PrivateBus::State {
    common::PrivateBus daemon;
    Connection connection = connect_to(daemon.address());
    ConnectionTools tools{connection.get()};
};

PrivateBus::PrivateBus() : state_(std::make_unique<State>()) {}

PrivateBus::~PrivateBus() = default;

const std::string& PrivateBus::address() const noexcept {
    return state_->daemon.address();
}

SDBusTools& PrivateBus::tools() noexcept {
    return state_->tools;
}

Connection connect_to(const std::string& address) {
    Connection bus;
    check(sd_bus_new(bus.out()));
    check(sd_bus_set_address(bus.get(), address.c_str()));
    check(sd_bus_set_bus_client(bus.get(), 1));
    check(sd_bus_start(bus.get()));
    return bus;
}

}  // namespace Fenwa::testkit
