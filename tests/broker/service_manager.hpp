#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>

#include "common/bus/bus.hpp"
#include "common/process/descriptor.hpp"

namespace test {

/// Plays a user's service manager for dbus-broker-launch, which does not start the programs of
/// service files itself: it starts them as children, and reports the jobs and the units that have
/// failed.
class ServiceManager {
  public:
    /// @param socket listens for the launcher.
    /// @param ready is called when the launcher has connected, which it does once the bus is
    /// served.
    /// @param bus_address what the programs find in DBUS_SESSION_BUS_ADDRESS, as a user's services
    /// do.
    ServiceManager(sd_event& event, common::Descriptor socket, std::string bus_address,
                   std::function<void()> ready);
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;

    /// A child has ended, with this status; does nothing where it is not the program of a unit.
    void report_end(pid_t child, int status);

  private:
    struct Handler;  // the vtables

    void on_connection(sd_event_source& source, int socket);
    int on_hello(sd_bus_message& call);
    int on_request(sd_bus_message& call);
    int on_load_unit(sd_bus_message& call);
    int on_start_unit(sd_bus_message& call);
    void start(sd_bus_message& call, const std::string& unit);
    void send(const common::MessagePtr& signal);

    common::Descriptor socket_;
    std::string bus_address_;
    std::function<void()> ready_;
    common::BusPtr launcher_;
    common::EventSourcePtr connection_source_;
    std::map<pid_t, std::string> units_;  // by their processes
    unsigned jobs_ = 0;
};

}  // namespace test
