#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace camera {

/// The object that receives a consumer's share.
struct ConsumerAddress {
    std::string service;  ///< bus name
    std::string path;
    std::string interface;
};

/// A consumer's request for power.
struct PowerRequest {
    std::string kind;  ///< in the consumer's words, such as "control"
    double power = 0.0;
};

/// A client's part in the power budget.
struct PowerConsumer {
    std::string name;
    std::string owner;  ///< unique name of the client that registered it
    ConsumerAddress address;
    std::optional<PowerRequest> request;  ///< nothing until it asks
    double share = 0.0;
};

/// A share that a consumer must be told.
struct PowerNotice {
    std::string consumer;
    double share;
};

/// A power budget that is divided among consumers in the order in which they first asked: each
/// gets what it asks for or what is left. Knows no bus.
class PowerModel {
  public:
    /// A client that registers for ever must not take all memory, and a change of the budget may
    /// cause a call to each consumer.
    static constexpr std::size_t max_consumers = 1024;

    /// `budget` is finite and not negative, as everywhere below; so are requests.
    explicit PowerModel(double budget) : budget_(budget), left_(budget) {}

    [[nodiscard]] double budget() const noexcept { return budget_; }
    /// The rest of the budget, rounded towards 0: it and the shares never sum up to more than the
    /// budget.
    [[nodiscard]] double left() const noexcept { return left_; }
    /// In the order in which they get power; those without a request are among the others.
    [[nodiscard]] const std::vector<PowerConsumer>& consumers() const noexcept {
        return consumers_;
    }
    /// Null where there is none; valid until the next change.
    [[nodiscard]] const PowerConsumer* by_name(std::string_view name) const;

    /// Registers a consumer, or moves one to this owner and address, which keeps request and share.
    /// @throws CapacityError when full.
    void add(std::string name, std::string owner, ConsumerAddress address);

    // Each of the following divides the budget again and returns the consumers whose share changes,
    // in the order in which they get power.

    /// A second request replaces the first and keeps its place. The consumer itself is returned in
    /// any case.
    /// @throws std::out_of_range when no consumer has that name.
    std::vector<PowerNotice> request(std::string_view name, PowerRequest request);
    /// @throws std::out_of_range when no consumer has that name.
    std::vector<PowerNotice> remove(std::string_view name);
    /// Removes a client's consumers, and returns how many there were.
    std::pair<std::size_t, std::vector<PowerNotice>> drop_owner(std::string_view owner);
    std::vector<PowerNotice> set_budget(double budget);

    /// Forgets all consumers, as a restart does. The budget stays.
    void drop_all() noexcept;

  private:
    [[nodiscard]] std::vector<PowerConsumer>::iterator find(std::string_view name);
    /// @param always a consumer that is among the notices in any case.
    std::vector<PowerNotice> divide(std::string_view always = {});

    double budget_;
    double left_;
    std::vector<PowerConsumer> consumers_;
};

}  // namespace camera
