#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "camera/models/command_error.hpp"
#include "common/text/json.hpp"

namespace camera {

/// The effect of a rule on a reply, a signal or an outgoing call.
enum class FaultEffect {
    none,       ///< the right message is sent, perhaps late
    error,      ///< an error reply is sent; the call is not served
    malformed,  ///< the call is served; the message has a body or value of another type
    silent,     ///< nothing is sent; the call is not served
    drop,       ///< the service leaves the bus without an answer; the call is not served
};

/// A rule for the next messages of a member.
struct FaultRule {
    std::string service;  ///< empty: any service that has the member
    std::string member;   ///< a method, a signal, a property or an outgoing call
    FaultEffect effect = FaultEffect::none;
    std::string error_name;              ///< with `FaultEffect::error`
    std::chrono::milliseconds delay{0};  ///< of the message, or of the drop
    std::optional<std::uint32_t> times;  ///< how many messages; nothing: until the rule is cleared
    double probability = 1.0;            ///< of each message to be hit, above 0 and up to 1
    std::uint64_t seed = 1;              ///< the same seed hits the same messages

    /// "SERVICE.MEMBER", or "MEMBER" for any service.
    [[nodiscard]] std::string target() const;
    /// The effect in words: "answered with com.x.Error after 500 ms".
    [[nodiscard]] std::string what() const;
    /// The same with how often: ", with probability 0.5, 2 times".
    [[nodiscard]] std::string description() const;
};

/// What a rule does to one message.
struct Fault {
    FaultEffect effect = FaultEffect::none;
    std::string error_name;
    std::chrono::milliseconds delay{0};
};

/// The longest delay of a rule.
inline constexpr std::chrono::milliseconds max_fault_delay = std::chrono::hours(24);

/// Splits "SERVICE.MEMBER" or "MEMBER" into the two names of a rule.
void set_target(FaultRule& rule, const std::string& target);

/// Called for each mistake in a rule's options; `key` is empty for options that contradict each
/// other.
using FaultMistake = std::function<void(const std::string& key, const CommandError& mistake)>;

/// Reads a rule from options: "member" (string), "error" (string), "malformed", "silent", "drop"
/// (booleans), "delay" (milliseconds), "times", "probability", "seed". An option that is unknown,
/// of a wrong type or out of range is reported and left out.
[[nodiscard]] FaultRule fault_rule_from(const common::Json& options, const FaultMistake& report);

/// The rules in force. A member has one rule at a time with the service named and one without;
/// the one that names the service goes first.
class FaultRules {
  public:
    /// Called with "applied" or "spent" and the rule, whose service is filled in.
    using Observer = std::function<void(const char* state, const FaultRule& rule)>;

    explicit FaultRules(Observer observer) : observer_(std::move(observer)) {}

    /// Adds a rule in place of the one with the same service and member.
    void add(FaultRule rule);
    /// Removes the rule with this service and member; false where there is none. An empty service
    /// removes all rules of the member.
    bool clear(const std::string& service, const std::string& member);
    /// Applies the rules to a message and counts it; nothing where no rule hits it.
    std::optional<Fault> take(const std::string& service, const std::string& member);
    /// The rules in force, for `show`, with the remaining times.
    [[nodiscard]] common::Json json() const;

  private:
    struct Active {
        FaultRule rule;
        std::mt19937_64 random;
    };

    static bool hits(Active& active);

    Observer observer_;
    std::vector<Active> active_;
};

}  // namespace camera
