#pragma once

#include <memory>
#include <string>

#include "fenwa/testkit/body.hpp"
#include "fenwa/testkit/private_bus.hpp"
#include "fenwa/testkit/script.hpp"

namespace Fenwa::testkit {

/// A service on a private bus that answers as its script says, on a thread of its own, so that a
/// block's blocking calls get their answers too. It has every path and interface. A call that the
/// script does not know gets the error "org.freedesktop.DBus.Error.UnknownMethod".
class FakeService final : public Script {
  public:
    /// @param bus outlives the service.
    /// @param name the bus name that it owns from here on.
    /// @throws std::system_error when the name cannot be had.
    FakeService(PrivateBus& bus, std::string name);
    ~FakeService();

    // These return when the daemon has got the message.

    /// Sends a signal. @throws std::system_error when it cannot be built.
    void emit(const std::string& path, const std::string& interface, const std::string& member,
              const Body& values = {});
    /// Gives the bus name up, as a service that ends; the connection stays.
    void leave();
    /// Owns the bus name again.
    void come_back();

  private:
    struct Thread;

    std::string name_;
    std::unique_ptr<Thread> thread_;
};

}  // namespace Fenwa::testkit
