#pragma once

#include <optional>
#include <string>

#include "tests/integration/camera/bus_client.hpp"

namespace test {

/// A video channel that takes part in the camera's power budget: a client of the power controller
/// that owns "com.tarlo.Vipd.chN" and exports `SetPower`, each call of which becomes a line of
/// `heard()`: `SetPower(4.5)`.
class ConsumerClient : public BusClient {
  public:
    ConsumerClient(const std::string& address, int channel);

    /// `()`, or what the controller refuses with.
    std::string register_consumer();
    std::string request(double power);
    std::string unregister();

    /// From here on `SetPower` is answered with this error.
    void refuse(const std::string& error) { error_ = error; }
    /// From here on it is not answered at all.
    void keep_silent() { silent_ = true; }

    [[nodiscard]] const std::string& name() const { return name_; }

  private:
    static const sd_bus_vtable vtable_[];
    int set_power(sd_bus_message& call);

    std::string service_;
    std::string name_;
    std::optional<std::string> error_;
    bool silent_ = false;
    common::SlotPtr object_;
};

}  // namespace test
