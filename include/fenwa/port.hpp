#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "fenwa/api.hpp"
#include "fenwa/datatype.hpp"

namespace Fenwa {

class Block;
class HostAccess;

/// Base of all ports. A port belongs to one block, which owns it after adding it.
///
/// Inputs and events are triggered in two stages: a value or event sets the pending mark on any
/// thread, and before a run the host moves it to the triggered mark, which does not change during
/// the run. On an output the triggered mark means "has a value that is not delivered yet".
///
/// The order of the virtual operations is ABI: 0, 1 destructor; 2 `is_triggered`; 3 `reset`.
class FENWA_API Port {
  public:
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;
    virtual ~Port();

    /// Whether a new value or event has arrived since the last `reset`. Thread of `run()` only.
    [[nodiscard]] virtual bool is_triggered() const;

    /// Removes the triggered mark if the value or event has been dealt with. The pending mark for
    /// the next run stays either way. Thread of `run()`.
    virtual void reset(bool dealt_with);

    /// Name of the port within its block.
    [[nodiscard]] const std::string& name() const noexcept { return name_; }

  protected:
    explicit Port(std::string name);

    void set_triggered() noexcept { triggered_ = true; }
    /// Any thread; seen by the next run.
    void set_pending() noexcept { pending_.store(true); }

  private:
    friend class HostAccess;

    std::string name_;
    std::atomic<bool> pending_{false};
    bool triggered_ = false;
};

/// Base of all input ports.
class FENWA_API InPortInternal : public Port {
  public:
    /// @param triggers whether a new value makes the framework run the block.
    InPortInternal(std::string name, Datatype datatype, bool triggers);
    ~InPortInternal() override;

    [[nodiscard]] const Datatype& datatype() const noexcept { return datatype_; }
    [[nodiscard]] bool triggers() const noexcept { return triggers_; }

  protected:
    /// The producer's value, which the port reads in place; null while nothing is connected.
    [[nodiscard]] const void* source() const noexcept { return source_; }

  private:
    friend class HostAccess;

    Datatype datatype_;
    bool triggers_;
    const void* source_ = nullptr;
};

/// Owner of an input port, for `Block::add_inport`.
class FENWA_API InPortProvider {
  public:
    virtual ~InPortProvider();
    /// The port, owned by the provider.
    virtual InPortInternal* get_port() = 0;
};

/// Typed input port, which is its own provider.
///
/// Virtual operations, ABI: 0, 1 destructor; 2 `is_triggered`; 3 `reset`; 4 `get_port`.
template <class T>
class InPort : public InPortInternal, public InPortProvider {
  public:
    InPort(std::string name, Datatype datatype, bool triggers)
        : InPortInternal(std::move(name), std::move(datatype), triggers) {}

    InPortInternal* get_port() override { return this; }

    /// The connected output's value, read in place: valid until that block runs again. A T{} if
    /// nothing is connected. Thread of `run()` only.
    [[nodiscard]] const T& value() const {
        static const T unconnected{};
        return source() == nullptr ? unconnected : *static_cast<const T*>(source());
    }
};

/// Base of all output ports.
class FENWA_API OutPortInternal : public Port {
  public:
    OutPortInternal(std::string name, Datatype datatype);
    ~OutPortInternal() override;

    [[nodiscard]] const Datatype& datatype() const noexcept { return datatype_; }

  protected:
    /// Sets the address of the value, for the inputs that read it in place.
    void set_value_address(const void* value) noexcept { value_ = value; }

  private:
    friend class HostAccess;

    Datatype datatype_;
    const void* value_ = nullptr;
};

/// Typed output port. Its value is the first member after `OutPortInternal`.
///
/// Virtual operations, ABI: 0, 1 destructor; 2 `is_triggered`; 3 `reset`.
template <class T>
class OutPort : public OutPortInternal {
  public:
    OutPort(std::string name, Datatype datatype)
        : OutPortInternal(std::move(name), std::move(datatype)) {
        set_value_address(&value);
    }

    /// Assigns the value and marks the port. The host delivers it after the call into the block,
    /// also if it is equal to the last one. Only in an operation that the framework calls:
    /// constructor, `setup`, `start`, `run`, `reconfigure`, `stop`. A callback of sd-bus stores its
    /// news and fires an event port instead: a value that it publishes waits for the next such
    /// operation.
    void publish(const T& new_value) {
        value = new_value;
        set_triggered();
    }

    T value{};  ///< the last published value, T{} before the first
};

/// An event without a value, made by `Block::make_eventport` and owned by the block.
class FENWA_API EventPort : public Port {
  public:
    ~EventPort() override;

    /// Marks the event and has the host run the block. Several fires before a run make one run.
    /// Any thread, also from sd-bus callbacks and constructors; never blocks, never throws.
    void fire() noexcept;

  private:
    friend class Block;

    EventPort(std::string name, Block& block);

    Block& block_;
};

}  // namespace Fenwa
