#pragma once

#include <map>
#include <string>
#include <vector>

#include "common/bus/bus.hpp"

namespace test {

/// One message as it crossed the bus.
struct BusMessage {
    std::string sender;
    std::string destination;  ///< empty for a broadcast
    std::string kind;         ///< "calls", "replies", "refuses" or "signals"
    std::string member;       ///< of a call or signal; the error's name of a refusal
    std::string arguments;    ///< `3, 0.5, "main"`
};

/// A monitor connection: sees every message on the bus from its construction on, in the order in
/// which the daemon handles them.
class BusMonitor {
  public:
    /// @throws std::system_error or common::Failure when the bus takes no monitor.
    explicit BusMonitor(const std::string& address);

    /// Records until the connection `unique_name` is gone from the bus, 20 s at most.
    /// @throws std::runtime_error when it is not gone by then.
    void record_until_gone(const std::string& unique_name);

    [[nodiscard]] const std::vector<BusMessage>& messages() const noexcept { return messages_; }

    /// Who first called `member`, recording up to that call, 20 s at most.
    /// @throws std::runtime_error when nobody has called it by then.
    std::string caller_of(const std::string& member);

  private:
    template <class Done>
    BusMessage record_until(const Done& done, const std::string& what);

    common::BusPtr bus_;
    std::vector<BusMessage> messages_;
};

/// The messages from and to `client`, from its first one on, with the owner changes of
/// `service_name` and the signals of its owners in between, one line each, with names in place of
/// the numbers of the connections: "client" for the client (and for further names of its),
/// "daemon", "service" for the first owner of the service's name and "service 2", … for its
/// successors, such as
///
///     client calls service: GetTemperature(3, "main")
///     service replies to client: (36.5)
///     daemon refuses client: org.freedesktop.DBus.Error.NameHasNoOwner("Could not …")
///     service signals: TemperatureChangeSignal(1, 40.0)
std::vector<std::string> story_of(const std::vector<BusMessage>& recorded,
                                  const std::string& client, const std::string& service_name);

}  // namespace test
