#pragma once

#include <systemd/sd-bus.h>

#include <functional>
#include <list>
#include <optional>
#include <set>
#include <string>

#include "common/bus/bus.hpp"

namespace host {

/// The names that have an owner on a bus; empty if the bus does not tell.
using OwnedNames = std::optional<std::set<std::string>>;

/// Asks a bus daemon which names have an owner, without waiting. Thread of the loop.
class BusNames {
  public:
    /// @param bus served by a loop; outlives this object.
    explicit BusNames(sd_bus& bus) : bus_(bus) {}
    BusNames(const BusNames&) = delete;
    BusNames& operator=(const BusNames&) = delete;
    ~BusNames() = default;

    /// Calls `handler` once with the daemon's answer, unless this object is destroyed before.
    void ask(std::function<void(const OwnedNames& names)> handler);

  private:
    /// One call of its own for each, so that the loop serves others between two handlers.
    struct Question {
        void on_answer(sd_bus_message& reply);

        BusNames& names;
        std::list<Question>::iterator self;
        std::function<void(const OwnedNames& names)> handler;
        common::SlotPtr call;
    };

    sd_bus& bus_;
    std::list<Question> questions_;
};

}  // namespace host
