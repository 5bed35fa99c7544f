#pragma once

#include <functional>
#include <string>
#include <vector>

#include "fenwa/api.hpp"
#include "fenwa/block.hpp"
#include "framework/shared/ready_queue.hpp"

namespace Fenwa {

/// An object that a block asked to export and that the bus connection refused.
struct RefusedExport {
    std::string path;
    std::string interface;
    int negative_errno;
};

/// Access of a host to blocks and ports, beyond the interface for blocks. Host's thread only.
class FENWA_API HostAccess {
  public:
    /// Gives the block its tools, exports its objects, and puts it into `queue` whenever it is
    /// ready, also for fires of the constructor. Tools and queue outlive the block.
    /// @param on_refused_later called for each later `add_dbus` that fails; may be empty.
    /// @returns the exports of the constructor that failed.
    static std::vector<RefusedExport> adopt(
        Block& block, const InitTools& tools, ReadyQueue& queue,
        std::function<void(const RefusedExport&)> on_refused_later = {});

    /// Keeps a pointer of the host's with the block; null at first.
    static void set_host_data(Block& block, void* data);
    [[nodiscard]] static void* host_data(const Block& block);

    /// Path and interface of every object that the block asked to export.
    [[nodiscard]] static std::vector<std::pair<std::string, std::string>> exported_objects(
        const Block& block);

    /// Whether the block has exported such an object.
    [[nodiscard]] static bool has_exported(const Block& block, const std::string& path,
                                           const std::string& interface);

    /// The configuration that the block was built with, its own defaults included.
    [[nodiscard]] static const BlockConfiguration& configuration(const Block& block);

    [[nodiscard]] static const std::vector<InPortInternal*>& inports(const Block& block);
    [[nodiscard]] static std::vector<OutPortInternal*> outports(const Block& block);
    [[nodiscard]] static std::vector<std::string> eventport_names(const Block& block);
    /// The event port of that name, owned by the block; null if there is none. In block_state.hpp,
    /// so that the test kit, which alone asks for it, needs no symbol that others do not have.
    [[nodiscard]] static EventPort* eventport(const Block& block, const std::string& name);

    /// Moves the pending marks of all input and event ports to triggered.
    /// @returns whether any of them is triggered now.
    static bool arm(Block& block);
    /// Removes the triggered marks of all input and event ports; pending ones stay.
    static void disarm(Block& block);

    /// Connects an input port to the value at `value`, which it reads in place; null for none.
    static void connect(InPortInternal& port, const void* value);
    /// Address of the value that an input port reads; null for a T{}.
    [[nodiscard]] static const void* source(const InPortInternal& port);
    /// Address of the value of an output port; null for a port that has none.
    [[nodiscard]] static const void* value_address(const OutPortInternal& port);
    /// Marks an input of `block`, and makes the block ready if the port triggers.
    static void notify(InPortInternal& port, Block& block);
};

}  // namespace Fenwa
