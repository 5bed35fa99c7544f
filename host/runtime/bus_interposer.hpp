#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "common/bus/bus.hpp"
#include "host/runtime/block_calls.hpp"

namespace host {

/// Observes the calls of the blocks on the connection that they share: the program defines
/// `sd_bus_call` and `sd_bus_call_async`, through which libsystemd sends every call of any kind,
/// and the functions that install matches and objects, and forwards to those of libsystemd. Results
/// and the arguments of callbacks stay as they are. The calling block is that of `CurrentBlock`.
/// One object at a time, on the thread of the loop; calls on other connections and threads are not
/// observed.
class BusInterposer {
  public:
    /// Called once for each block and limit of the bus that it has reached.
    /// @param block null if unknown.
    using LimitListener = std::function<void(const std::string* block, const std::string& text)>;

    /// The answer of the bus daemon to a match that a block has requested.
    enum class MatchAnswer {
        installed,
        refused,       ///< for the first time, or after the block had one for this rule
        refused_again  ///< the block retries for ever
    };
    using MatchListener = std::function<void(const std::string& block, MatchAnswer answer)>;

    /// @param bus outlives this object, and is not served any more after it.
    explicit BusInterposer(sd_bus& bus);
    BusInterposer(const BusInterposer&) = delete;
    BusInterposer& operator=(const BusInterposer&) = delete;
    ~BusInterposer();

    /// What the blocks say to services with well-known names, and what these answer; calls to the
    /// bus daemon itself do not count.
    [[nodiscard]] BlockCalls& block_calls() noexcept { return block_calls_; }

    /// The number of unanswered calls to services; the bus daemon keeps a record of each.
    [[nodiscard]] std::size_t unanswered() const noexcept { return unanswered_; }

    /// The number of calls so far, those for matches included.
    [[nodiscard]] std::uint64_t calls() const noexcept { return calls_; }

    /// Calls `listener` for each call that was answered, or given up by sd-bus.
    void on_answer(std::function<void()> listener) { on_answer_ = std::move(listener); }
    void on_limit(LimitListener listener) { on_limit_ = std::move(listener); }

    /// Calls `listener` for each answer to a match of a block, before the block's own callback.
    void on_match(MatchListener listener) { on_match_ = std::move(listener); }
    /// The number of matches that are requested and not answered.
    [[nodiscard]] std::size_t matches_requested() const noexcept { return matches_requested_; }

    /// Forgets a block that is destroyed: the callbacks of calls that it left open are not called.
    void forget(const std::string& block);

    // For the functions that replace those of sd-bus.
    static BusInterposer* of(sd_bus* bus) noexcept;
    /// @param bus null for the message's own.
    static BusInterposer* of(sd_bus* bus, sd_bus_message* message) noexcept;
    int call_async(sd_bus_slot** slot, sd_bus_message* message, sd_bus_message_handler_t callback,
                   void* userdata, std::uint64_t timeout);
    int add_match_async(sd_bus_slot** slot, const char* rule, sd_bus_message_handler_t callback,
                        sd_bus_message_handler_t install_callback, void* userdata);
    int call(sd_bus_message* message, std::uint64_t timeout, sd_bus_error* error,
             sd_bus_message** reply);

  private:
    /// A call that is not answered yet.
    struct Pending {
        sd_bus_message_handler_t callback = nullptr;
        std::string block;    ///< empty if unknown
        bool counts = false;  ///< the daemon keeps a record of it
        std::string rule;     ///< of the match that it requests; empty for none
        ServiceCall call{};   ///< to a service; without one, `call.service` is empty
        std::string asked{};  ///< the name whose owner it asks for; empty for none
    };

    static int on_reply(sd_bus_message* reply, void* userdata, sd_bus_error* error);
    void on_message(sd_bus_message& message);
    /// Has sd-bus show each message.
    void watch_messages();

    void expect(sd_bus_message& message, Pending pending);
    /// Settles the call that this answers. @returns its record, an empty one for an unknown call.
    Pending take(sd_bus_message& answer, std::uint64_t cookie);
    /// @returns the call of the current block to a service; without a service for any other.
    [[nodiscard]] ServiceCall note_call(sd_bus_message& message);
    void note_end(const Pending& pending, const sd_bus_error* error);
    void note_owner_change(sd_bus_message& message);
    void note_match(const Pending& pending, bool refused);
    void note_limit(const std::string& block, const sd_bus_error* error);

    sd_bus& bus_;
    common::SlotPtr filter_;                              ///< while a message may tell something
    std::unordered_map<std::uint64_t, Pending> pending_;  ///< by cookie
    std::size_t unanswered_ = 0;
    std::uint64_t calls_ = 0;
    sd_bus_message_handler_t installing_ = nullptr;  ///< of the match that is being added
    std::string rule_;                               ///< of that match
    std::size_t matches_requested_ = 0;
    std::unordered_map<std::string, std::vector<std::string>> refused_;  ///< rules, by block
    MatchListener on_match_;
    std::uint64_t replied_ = 0;  ///< cookie of the last call whose reply a callback was given
    BlockCalls block_calls_;
    std::unordered_map<std::string, std::vector<std::string>> limits_;  ///< reported, by block
    std::function<void()> on_answer_;
    LimitListener on_limit_;
};

}  // namespace host
