#pragma once

#include <systemd/sd-bus.h>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "common/events/message.hpp"

namespace host {

/// A call of a block to a service.
struct ServiceCall {
    enum class State { unanswered, answered, failed };

    std::string service;   ///< the bus name that was called
    std::string member;    ///< of a property its name: "Get PowerReceived"
    std::uint64_t at = 0;  ///< when it was sent, microseconds of CLOCK_MONOTONIC
    State state = State::unanswered;
    std::string error{};    ///< its name; empty unless it failed
    std::string message{};  ///< of the error; may be empty
};

/// "was refused by com.tarlo.X: UnknownSensor: No sensor is named 'mian'", the end of a sentence
/// about a call that failed.
[[nodiscard]] std::string describe_failure(const ServiceCall& call);

/// The services that blocks call and follow, how the last call of each block was answered, and the
/// news that a user wants unasked: a call is refused, a service has no owner, and the end of
/// either. What comes and goes within ten seconds is told once. Thread of the loop.
class BlockCalls {
  public:
    /// Takes the end of a sentence that begins with the block: "waits for com.tarlo.X, …" or
    /// ": GetTemperature was refused by …".
    using NewsListener = std::function<void(common::Severity severity, const std::string& block,
                                            const std::string& news)>;
    void on_news(NewsListener listener) { on_news_ = std::move(listener); }

    /// A block listens to a service's signals.
    void follows(const std::string& block, const std::string& service);
    /// A block has sent a call.
    void sent(const std::string& block, ServiceCall call);
    /// A call of the block has come to its end, which need not be its last one.
    /// @param error null for an answer.
    /// @param now microseconds of CLOCK_MONOTONIC.
    void ended(const std::string& block, ServiceCall call, const sd_bus_error* error,
               std::uint64_t now);
    /// A block has asked for the owner of a name. @param owned whether there is one.
    void owner_told(const std::string& block, const std::string& service, bool owned,
                    std::uint64_t now);
    /// A name has an owner; to be called while `is_anyone_waiting`.
    void owner_appeared(std::string_view service, std::uint64_t now);
    [[nodiscard]] bool is_anyone_waiting() const noexcept { return waiting_ > 0; }

    /// The services that the block has called or follows, in the order of the first time.
    [[nodiscard]] const std::vector<std::string>& services(const std::string& block) const;
    /// The block's last call; null before the first one.
    [[nodiscard]] const ServiceCall* last_call(const std::string& block) const;

    /// The block does not exist any more.
    void forget(const std::string& block);

  private:
    /// Something that keeps a block from working.
    struct Trouble {
        bool present = false;
        bool told = false;  ///< its end is told only then
        std::string error{};
        std::uint64_t told_at = 0;
    };
    struct Record {
        std::vector<std::string> services;
        ServiceCall last_call;
        std::map<std::string, Trouble> unowned;                          ///< by service
        std::map<std::pair<std::string, std::string>, Trouble> refused;  ///< by service and member
    };

    void begin(Trouble& trouble, const std::string& error, std::uint64_t now,
               const std::string& block, const std::string& news);
    void end(Trouble& trouble, const std::string& block, const std::string& news);
    void set_unowned(const std::string& block, Record& record, const std::string& service,
                     bool unowned, std::uint64_t now);
    void set_refused(const std::string& block, Record& record, const ServiceCall& call,
                     std::uint64_t now);

    std::unordered_map<std::string, Record> records_;
    std::size_t waiting_ = 0;  ///< pairs of a block and a service that has no owner
    NewsListener on_news_;
};

}  // namespace host
