#pragma once

#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace host {

/// Sees what the blocks ask of the bus on the connection that they share: the program has its own
/// `sd_bus_call` and `sd_bus_call_async`, through which libsystemd sends every call of whatever
/// kind, and `sd_bus_add_match_async`, and hands on to those of libsystemd. What they return and
/// what callbacks are given stays as it is. The block is the one of `CurrentBlock`. One at a time,
/// on the thread of the loop; calls on other connections and on other threads go by unseen.
class BusInterposer {
  public:
    /// Told once for each block and limit that the bus has reached a limit.
    /// @param block null where it is not known.
    using LimitListener = std::function<void(const std::string* block, const std::string& text)>;

    /// What the bus daemon has said to a match that a block has asked for.
    enum class MatchAnswer {
        installed,
        refused,       ///< for the first time since the block had one for this rule, or never had
        refused_again  ///< the block tries for ever
    };
    using MatchListener = std::function<void(const std::string& block, MatchAnswer answer)>;

    /// @param bus outlives this object, and is not served any more after it.
    explicit BusInterposer(sd_bus& bus);
    BusInterposer(const BusInterposer&) = delete;
    BusInterposer& operator=(const BusInterposer&) = delete;
    ~BusInterposer();

    /// The well-known bus names that a block has called or listens to, in the order of the first
    /// time; the bus daemon's own is left out.
    [[nodiscard]] std::vector<std::string> services(const std::string& block) const;

    /// How many of the calls to services, each of which the bus daemon remembers until it is
    /// answered, are unanswered.
    [[nodiscard]] std::size_t unanswered() const noexcept { return unanswered_; }

    /// How many calls have been sent so far, those for matches included.
    [[nodiscard]] std::uint64_t calls() const noexcept { return calls_; }

    /// Has `listener` called whenever a call has been answered, or given up by sd-bus.
    void on_answer(std::function<void()> listener) { on_answer_ = std::move(listener); }
    void on_limit(LimitListener listener) { on_limit_ = std::move(listener); }

    /// Has `listener` called for each answer to a match of a block, before the block is told.
    void on_match(MatchListener listener) { on_match_ = std::move(listener); }
    /// How many matches are asked for and not answered.
    [[nodiscard]] std::size_t matches_asked() const noexcept { return matches_asked_; }

    // For the functions that stand in for those of sd-bus.
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
    /// A call whose answer is to come, by its cookie, with what the block gave for it.
    struct Pending {
        sd_bus_message_handler_t callback = nullptr;
        std::string block;    ///< empty where it is not known
        bool counts = false;  ///< the daemon keeps an account of it
        std::string rule;     ///< of the match that it asks for; empty for none
    };

    static int on_reply(sd_bus_message* reply, void* userdata, sd_bus_error* error);
    void on_message(sd_bus_message& message);

    void expect(sd_bus_message& message, Pending pending);
    /// What was kept for the call that this answers, which is settled with it.
    Pending take(sd_bus_message& answer, std::uint64_t cookie);
    void note_service(sd_bus_message& message);
    void note_match(const Pending& pending, bool refused);
    void note_limit(const std::string& block, const sd_bus_error* error);

    sd_bus& bus_;
    sd_bus_slot* filter_ = nullptr;
    std::unordered_map<std::uint64_t, Pending> pending_;
    std::size_t unanswered_ = 0;
    std::uint64_t calls_ = 0;
    sd_bus_message_handler_t installing_ = nullptr;  ///< of the match that is being added
    std::string rule_;                               ///< of that match
    std::size_t matches_asked_ = 0;
    std::unordered_map<std::string, std::vector<std::string>> refused_;  ///< rules, by block
    MatchListener on_match_;
    std::uint64_t replied_ = 0;  ///< cookie of the last call whose reply a callback was given
    std::unordered_map<std::string, std::vector<std::string>> services_;
    std::unordered_map<std::string, std::vector<std::string>> limits_;  ///< said, by block
    std::function<void()> on_answer_;
    LimitListener on_limit_;
};

}  // namespace host
