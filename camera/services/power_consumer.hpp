#pragma once

#include "camera/models/power.hpp"
#include "camera/service/service.hpp"

namespace camera {

/// The camera's power controller as consumers see it: bus name and interface
/// "com.tarlo.PowerControl.Consumer".
///
/// Consumers belong to the client that registered them (its unique name): they go when it leaves
/// the bus and when the service restarts. `SetPower` is called on a consumer after each of its
/// own requests, and whenever its share changes.
///
/// Values: "power.budget"; to be seen only "power.left" and, for each consumer, "power.share.NAME",
/// which is "none" as long as nobody has registered under that name.
class PowerConsumerService final : public Service {
  public:
    /// Both must outlive the service; the model keeps the budget over restarts.
    PowerConsumerService(PowerModel& model, ServiceContext& surroundings)
        : Service("power-consumer", surroundings), model_(model) {}

    [[nodiscard]] std::vector<Value> values() const override;
    [[nodiscard]] bool claims(const std::string& value) const override;
    [[nodiscard]] common::Json value(const std::string& name) const override;
    [[nodiscard]] common::Json parse_value(const std::string& name,
                                           const std::string& text) const override;
    void check_settable(const std::string& name) const override;
    void set_value(const std::string& name, const std::string& text) override;
    [[nodiscard]] common::Json registrations() const override;

  protected:
    [[nodiscard]] std::span<const ServedObject> objects() const override;
    [[nodiscard]] std::vector<std::string> outgoing_calls() const override;
    std::size_t client_left(const std::string& unique_name) override;
    void forget() override;

  private:
    static const sd_bus_vtable vtable_[];

    common::MessagePtr register_consumer(sd_bus_message& call);
    common::MessagePtr request_power(sd_bus_message& call);
    common::MessagePtr unregister(sd_bus_message& call);
    /// @throws DBusError where the caller has not registered a consumer of that name.
    void check_registered(sd_bus_message& call, const std::string& name) const;
    void send_shares(const std::vector<PowerNotice>& notices);
    /// The same when what it comes of was answered or told; tells that shares have changed.
    void send_shares_afterwards(std::vector<PowerNotice> notices);

    PowerModel& model_;
};

}  // namespace camera
