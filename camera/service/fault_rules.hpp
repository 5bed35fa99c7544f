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

/// What happens in place of the right answer, or of the right signal or call.
enum class FaultEffect {
    none,       ///< the right one is sent, perhaps late
    error,      ///< an error reply; the call is not served
    malformed,  ///< the call is served, the message has a body or value of another type
    silent,     ///< nothing is sent; the call is not served
    drop,       ///< the service leaves the bus in place of answering; the call is not served
};

/// A rule "do this to the next messages of that member".
struct FaultRule {
    std::string service;  ///< empty: whichever service has the member
    std::string member;   ///< a method, a signal, a property or an outgoing call
    FaultEffect effect = FaultEffect::none;
    std::string error_name;              ///< with `FaultEffect::error`
    std::chrono::milliseconds delay{0};  ///< what is sent, or the drop, comes this much later
    std::optional<std::uint32_t> times;  ///< how many messages; nothing: until it is cleared
    double probability = 1.0;            ///< of each message to be hit, above 0 and up to 1
    std::uint64_t seed = 1;              ///< the same seed hits the same messages

    /// "SERVICE.MEMBER", or "MEMBER" where the service is open.
    [[nodiscard]] std::string target() const;
    /// What it does to a message: "answered with com.x.Error after 500 ms".
    [[nodiscard]] std::string what() const;
    /// The same with how often: ", with probability 0.5, 2 times".
    [[nodiscard]] std::string description() const;
};

/// What is to be done to one message.
struct Fault {
    FaultEffect effect = FaultEffect::none;
    std::string error_name;
    std::chrono::milliseconds delay{0};
};

/// The longest delay of a rule.
inline constexpr std::chrono::milliseconds max_fault_delay = std::chrono::hours(24);

/// Splits "SERVICE.MEMBER" or "MEMBER" into the two names of a rule.
void set_target(FaultRule& rule, const std::string& target);

/// Told of each mistake in a rule's options; `key` is empty where they do not go together.
using FaultMistake = std::function<void(const std::string& key, const CommandError& mistake)>;

/// Reads a rule from options: "member" (string), "error" (string), "malformed", "silent", "drop"
/// (booleans), "delay" (milliseconds), "times", "probability", "seed". Each option that is
/// unknown, of a wrong kind or out of range is reported and left out.
[[nodiscard]] FaultRule fault_rule_from(const common::Json& options, const FaultMistake& report);

/// The rules in force. A member has one rule at a time with the service named and one without;
/// the one that names the service goes first.
class FaultRules {
  public:
    /// Told "applied" or "spent" with the rule in question, its service filled in.
    using Observer = std::function<void(const char* state, const FaultRule& rule)>;

    explicit FaultRules(Observer observer) : observer_(std::move(observer)) {}

    /// Adds a rule in place of the one with the same service and member.
    void add(FaultRule rule);
    /// Removes the rule with this service and member; false where there is none. With an empty
    /// service all rules of that member go.
    bool clear(const std::string& service, const std::string& member);
    /// What to do to this message, counting it; nothing where no rule hits it.
    std::optional<Fault> take(const std::string& service, const std::string& member);
    /// The rules in force for `show`, with the number of times that are left.
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
