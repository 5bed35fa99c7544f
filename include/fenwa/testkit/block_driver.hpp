#pragma once

#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "fenwa/block.hpp"
#include "fenwa/testkit/scripted_tools.hpp"
#include "fenwa/testkit/values.hpp"

namespace Fenwa::testkit {

/// Calls a block as a host does. Whatever throws in the block reaches the test. One thread.
class Driver {
  public:
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;
    /// Destroys the block.
    virtual ~Driver();

    // The operations of the block, in the order in which a host calls them. What it publishes is
    // recorded and counts as delivered.

    /// The settings that `setup` returns. Those of a terminated input are
    /// "termination_cfg.inports", "termination_cfg.types" and "termination_cfg.NAME_def".
    [[nodiscard]] std::vector<Setting> setup();
    void start();
    /// Runs the block if it is woken. @returns whether it was.
    bool run();
    /// Lays `changes` over the settings of the block, which `reconfigure` gets with the old ones
    /// and then in place of them.
    /// When the block throws, its settings count as unchanged.
    void reconfigure(const BlockConfiguration& changes);
    void stop();
    /// Destroys the block; nothing but recorded outputs can be asked for from here on.
    void destroy();

    /// Runs the block whenever it is woken and dispatches its connection, until `done` is true.
    /// @returns false if that takes longer than `limit`.
    [[nodiscard]] bool wait_until(const std::function<bool()>& done,
                                  std::chrono::milliseconds limit = std::chrono::seconds(5));

    /// Whether an input that triggers has got a value, or an event port was fired, since the last
    /// run.
    [[nodiscard]] bool woken();

    // The ports. They throw std::invalid_argument for a name that the block does not have, and for
    // another datatype than the port's.

    /// Gives an input a new value, as the delivery of a connected output.
    template <class T>
    void feed(const std::string& input, T value) {
        deliver(input, datatype_of<T>(), std::make_shared<T>(std::move(value)));
    }
    /// The value that an output holds, published or not.
    template <class T>
    [[nodiscard]] const T& value(const std::string& output) {
        return *static_cast<const T*>(value_address(output, datatype_of<T>()));
    }
    /// Fires an event port, as a callback of the block does.
    void fire(const std::string& event_port);

    /// What the block has published since it was taken the last time: after each operation one
    /// value of each output that has a new one, in the order of its outputs.
    [[nodiscard]] std::vector<Output> take_outputs();

    /// Objects that the block exports and that the connection has refused, "PATH INTERFACE" each.
    [[nodiscard]] const std::vector<std::string>& refused_exports() const;

  protected:
    /// With tools of its own, whose bus is not there.
    Driver();
    /// @param tools outlive the driver.
    explicit Driver(SDBusTools& tools);

    /// Takes a block over, which was built with `tools()`. To be called once.
    void adopt(std::unique_ptr<Block> block);
    [[nodiscard]] const InitTools& tools() const;
    /// Takes over what is pending for a run. @returns whether the block was woken.
    bool arm();
    /// Ends a run: no port is triggered any more.
    void disarm();

  private:
    struct State;

    void call(const std::function<void(Block&)>& operation);
    void deliver(const std::string& input, const Datatype& datatype, std::shared_ptr<void> value);
    [[nodiscard]] const void* value_address(const std::string& output, const Datatype& datatype);

    std::unique_ptr<State> state_;
};

/// Builds a block from these arguments, and the tools if its constructor takes them behind the
/// arguments. All bytes of its memory are 1 before, or 0 every second time, so that a member
/// without an initial value shows. Throws what the constructor throws.
template <class T, class... Arguments>
[[nodiscard]] std::unique_ptr<T> build_block(const InitTools& tools, Arguments&&... arguments) {
    static int byte = 0;
    byte = 1 - byte;
    void* const place = ::operator new(sizeof(T));
    std::memset(place, byte, sizeof(T));
    try {
        if constexpr (std::is_constructible_v<T, Arguments..., const InitTools&>)
            return std::unique_ptr<T>(new (place) T(std::forward<Arguments>(arguments)..., tools));
        else
            return std::unique_ptr<T>(new (place) T(std::forward<Arguments>(arguments)...));
    } catch (...) {
        ::operator delete(place);
        throw;
    }
}

/// Drives a block of the class T.
template <class T>
class BlockDriver : public Driver {
  public:
    /// A block whose bus is not there. Throws what its constructor throws.
    explicit BlockDriver(const BlockConfiguration& config = {}, const std::string& name = "block")
        : block_(build_block<T>(tools(), name, config).release()) {
        adopt(std::unique_ptr<Block>(block_));
    }
    /// @param tools `ScriptedTools`, or those of a `PrivateBus`; they outlive the driver.
    explicit BlockDriver(SDBusTools& tools, const BlockConfiguration& config = {},
                         const std::string& name = "block")
        : Driver(tools), block_(build_block<T>(this->tools(), name, config).release()) {
        adopt(std::unique_ptr<Block>(block_));
    }

    // Until the block is destroyed.
    T* operator->() { return block_; }
    T& operator*() { return *block_; }

  private:
    T* block_;  ///< owned by the base
};

}  // namespace Fenwa::testkit
