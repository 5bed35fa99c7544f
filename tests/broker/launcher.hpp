#pragma once

#include <sys/types.h>

#include <string>

#include "common/bus/bus.hpp"
#include "common/process/descriptor.hpp"

namespace test {

/// The log of dbus-broker and its launcher, which they write to the socket of the journal only:
/// prints its messages to stderr.
class BrokerLog {
  public:
    /// @param socket the journal's, a datagram socket.
    BrokerLog(sd_event& event, common::Descriptor socket);
    BrokerLog(const BrokerLog&) = delete;
    BrokerLog& operator=(const BrokerLog&) = delete;

    /// Prints what has come and is not printed yet.
    void print();

  private:
    void on_datagram();

    common::Descriptor socket_;
    common::EventSourcePtr source_;
};

/// Starts dbus-broker-launch as a service manager does, which ends with the calling process.
/// @param listening the socket of the bus.
/// @param manager the address of a ServiceManager.
/// @throws std::system_error.
[[nodiscard]] pid_t start_launcher(const std::string& configuration_file, int listening,
                                   const std::string& manager);

}  // namespace test
