#pragma once

#include <systemd/sd-bus.h>

#include <string>

#include "fenwa/block.hpp"
#include "fenwa/slot.hpp"
#include "src/frame/owner_match.hpp"

namespace blocks {

/// State of a DBusClient in following its service's bus name.
enum class OwnerState : int {
    Idle = 0,           ///< nothing requested yet; the next run adds the match
    AddingMatch = 1,    ///< the match is being installed, or could not be sent
    MatchAdded = 2,     ///< the match is installed; the next run asks for the owner
    QueryingOwner = 3,  ///< the owner has been asked for, or the call could not be sent
    NoOwner = 4,        ///< the name has no owner; runs do nothing
    OwnerAppeared = 5,  ///< the name has an owner; the derived block has not been called for it
    Running = 6,        ///< the derived block has been called; each run calls its work operation
    Stopped = 7,        ///< `stop()` has been called
};

/// Base of a block that depends on one D-Bus service: follows whether the service's well-known name
/// has an owner, calls the derived block once for each new owner, and from then on calls its work
/// operation on every run until the owner goes away.
///
/// A match that cannot be sent stalls the block for good, a call until the next owner change; a
/// refused one is tried again.
/// Every owner change on the bus wakes a running client, so derived blocks must tolerate runs
/// without work.
///
/// The state is a plain int, written by the callbacks and read by `run()`: the framework delivers
/// no message while the block runs.
///
/// Appends to the virtual operations of `Block`, ABI: 19 `on_service_appeared`;
/// 20 `run_with_service`.
class DBusClient : public Fenwa::Block {
  public:
    /// @param service_name the bus name to follow; an empty one matches only an empty name.
    DBusClient(const std::string& service_name, std::string name,
               const Fenwa::BlockConfiguration& config);
    ~DBusClient() override;

    void stop() override;
    bool run() override;

    /// The service's name has an owner, which may be a new one: called once for each.
    virtual void on_service_appeared() = 0;  // 19
    /// Called on every run while the name has an owner, the first time right after slot 19.
    virtual void run_with_service() = 0;  // 20

  protected:
    /// Makes the framework run the block again, unless it is stopped. Any thread.
    void wake() noexcept;

    /// The framework's connection.
    [[nodiscard]] sd_bus* bus() const;

  private:
    friend struct LayoutProbe;

    void add_match();
    void query_owner();
    int on_match_installed(sd_bus_message* reply, sd_bus_error* error);
    int on_owner_answer(sd_bus_message* reply, sd_bus_error* error);
    int on_owner_changed(sd_bus_message* signal, sd_bus_error* error);

    // The order of these members is fixed; new ones go after them.
    Fenwa::EventPort* event_port;
    std::string service_name;
    Fenwa::Slot match_slot;
    Fenwa::Slot call_slot;
    OwnerState state;

    OwnerMatch owner_match;  ///< what `match_slot` is for
};

}  // namespace blocks
