#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace camera {

/// Where a consumer wants to be told of its share.
struct ConsumerAddress {
    std::string service;  ///< bus name
    std::string path;
    std::string interface;
};

/// What a consumer has asked for.
struct PowerRequest {
    std::string kind;  ///< in the consumer's words, such as "control"
    double power = 0.0;
};

/// One that takes part in the power budget.
struct PowerConsumer {
    std::string name;
    std::string owner;  ///< unique name of the client that registered it
    ConsumerAddress address;
    std::optional<PowerRequest> request;  ///< nothing until it asks
    double share = 0.0;
};

/// A consumer is to be told of its share.
struct PowerNotice {
    std::string consumer;
    double share;
};

/// A power budget that is divided among consumers in the order in which they first asked: each
/// gets what it asks for or what is left. Knows no bus.
class PowerModel {
  public:
    /// More consumers than this are refused: a client that registers for ever must not take all
    /// memory, and a change of the budget may be a call to each of them.
    static constexpr std::size_t max_consumers = 1024;

    /// `budget` is finite and not negative, as everywhere below; so are requests.
    explicit PowerModel(double budget) : budget_(budget), left_(budget) {}

    [[nodiscard]] double budget() const noexcept { return budget_; }
    /// What nobody has been given, rounded towards 0: shares and this never sum up to more than
    /// the budget.
    [[nodiscard]] double left() const noexcept { return left_; }
    /// In the order in which power is given; those that have not asked stand between the others.
    [[nodiscard]] const std::vector<PowerConsumer>& consumers() const noexcept {
        return consumers_;
    }
    /// Null where there is none; valid until the next change.
    [[nodiscard]] const PowerConsumer* by_name(std::string_view name) const;

    /// Registers a consumer, or moves one to this owner and address, which keeps request and share.
    /// @throws CapacityError when full.
    void add(std::string name, std::string owner, ConsumerAddress address);

    // Each of the following divides anew and says whose share is another one now, in the order in
    // which power is given.

    /// A second request replaces the first and keeps its place. The consumer itself is among
    /// those to be told, whether its share changes or not.
    /// @throws std::out_of_range when no consumer has that name.
    std::vector<PowerNotice> request(std::string_view name, PowerRequest request);
    /// @throws std::out_of_range when no consumer has that name.
    std::vector<PowerNotice> remove(std::string_view name);
    /// Removes a client's consumers; the number says how many there were.
    std::pair<std::size_t, std::vector<PowerNotice>> drop_owner(std::string_view owner);
    std::vector<PowerNotice> set_budget(double budget);

    /// Forgets all consumers, as a restart does. The budget stays.
    void drop_all() noexcept;

  private:
    [[nodiscard]] std::vector<PowerConsumer>::iterator find(std::string_view name);
    /// `told` is among the notices in any case.
    std::vector<PowerNotice> divide(std::string_view told = {});

    double budget_;
    double left_;
    std::vector<PowerConsumer> consumers_;
};

}  // namespace camera
