#pragma once

#include <systemd/sd-bus.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/text/json.hpp"

namespace camera {

/// A call, and the answer that a scenario gives to it in place of the service.
struct ScriptedReply {
    std::string service;  ///< empty: any service
    std::string member;
    std::string path{};                  ///< empty: any object of the service
    common::SharedJson arguments{};      ///< an array; null: any arguments
    std::string error{};                 ///< D-Bus error name; empty for an answer with values
    std::string message{};               ///< of the error
    bool silent = false;                 ///< no answer at all
    std::optional<std::string> types{};  ///< D-Bus signature of the values; nothing: the method's
    common::SharedJson values{};         ///< an array; null: empty
    std::chrono::microseconds after{0};  ///< since the call came
};

/// A message that a scenario has a service send: a signal, or a call where `to` is not empty.
struct ScriptedMessage {
    std::string service;
    std::string member;
    std::string to{};          ///< bus name that a method is called of
    std::string path{};        ///< empty: that of the service's first object with such a member
    std::string interface {};  ///< empty: as the path
    std::optional<std::string>
        types{};                     ///< D-Bus signature of the arguments; nothing: the member's
    common::SharedJson arguments{};  ///< an array; null: empty
};

/// The calls that a scenario answers, each once and in its order. The service that gets such a
/// call hands it over; the answer waits until the scenario releases it. Everything runs on the
/// loop.
class ReplyScript {
  public:
    using Clock = std::chrono::steady_clock;
    /// Answers the call that was handed over. @throws CommandError where the reply has no such
    /// form.
    using Answer = std::function<void(const ScriptedReply& reply)>;

    /// Adds a reply, which outlives the script. @returns its number.
    std::size_t add(const ScriptedReply& reply);
    /// Called with the number of each reply whose call has come.
    void set_observer(std::function<void(std::size_t)> observer) {
        observer_ = std::move(observer);
    }

    /// What becomes of a call.
    struct Claim {
        const ScriptedReply* reply;
        std::optional<std::size_t> number;  ///< nothing: the call is beyond the replies
    };
    /// Claims a call for the first reply that fits it and has none yet. A call beyond them gets
    /// the last one that fits once more.
    /// @returns nothing where no reply fits, or the caller wants none: the call is the service's.
    [[nodiscard]] std::optional<Claim> claim(const std::string& service, sd_bus_message& call);
    /// Hands a claimed call over: answers it when its reply is released, or at once where that has
    /// happened or the call is beyond the replies.
    void hand_over(const Claim& claim, const std::string& service, Answer answer);

    /// When the call of a reply came; nothing where it has not.
    [[nodiscard]] std::optional<Clock::time_point> arrival(std::size_t number) const {
        return entries_[number].arrival;
    }
    /// Releases a reply: answers its call, or lets it be answered as soon as it comes.
    void release(std::size_t number);
    /// Drops the calls of a service that leaves the bus.
    void forget(const std::string& service);

  private:
    struct Entry {
        const ScriptedReply* reply;
        std::optional<Clock::time_point> arrival{};
        Answer answer{};        // null before the call and after the answer
        std::string service{};  // that has handed the call over
        bool released = false;
    };

    std::vector<Entry> entries_;
    std::function<void(std::size_t)> observer_;
};

}  // namespace camera
