#pragma once

#include <functional>
#include <string>
#include <vector>

#include "fenwa/api.hpp"
#include "fenwa/block.hpp"
#include "framework/shared/ready_queue.hpp"

namespace Fenwa {

/// An object that a block wanted to export and that the bus connection refused.
struct RefusedExport {
    std::string path;
    std::string interface;
    int negative_errno;
};

/// What a host may do with blocks and ports beyond what blocks see. Host's thread only.
class FENWA_API HostAccess {
  public:
    /// Hands the block its tools and exports the objects that it asked for; from `queue` the host
    /// learns when the block wants to run, of fires in the constructor too. Both outlive the block.
    /// @param on_refused_later told of each export that fails from here on, in the block's
    ///        `add_dbus`; may be empty.
    /// @returns the exports of the constructor that failed.
    static std::vector<RefusedExport> adopt(
        Block& block, const InitTools& tools, ReadyQueue& queue,
        std::function<void(const RefusedExport&)> on_refused_later = {});

    /// Path and interface of every object that the block asked to export.
    [[nodiscard]] static std::vector<std::pair<std::string, std::string>> exported_objects(
        const Block& block);

    /// Whether the bus connection has taken such an object from the block.
    [[nodiscard]] static bool has_exported(const Block& block, const std::string& path,
                                           const std::string& interface);

    /// The configuration that the block was built with, its own defaults included.
    [[nodiscard]] static const BlockConfiguration& configuration(const Block& block);

    [[nodiscard]] static const std::vector<InPortInternal*>& inports(const Block& block);
    [[nodiscard]] static std::vector<OutPortInternal*> outports(const Block& block);
    [[nodiscard]] static std::vector<std::string> eventport_names(const Block& block);

    /// Moves the pending marks of all input and event ports to triggered.
    /// @returns whether any of them is triggered now.
    static bool arm(Block& block);
    /// Takes the triggered marks of all input and event ports away; pending ones stay.
    static void disarm(Block& block);

    /// Lets an input port read the value at `value`, in place; null for none.
    static void connect(InPortInternal& port, const void* value);
    /// Where an input port reads its value; null where it reads a T{}.
    [[nodiscard]] static const void* source(const InPortInternal& port);
    /// Where an output port keeps its value; null for a port that has none.
    [[nodiscard]] static const void* value_address(const OutPortInternal& port);
    /// A new value has come for an input of `block`: runs the block if the port says so.
    static void notify(InPortInternal& port, Block& block);
};

}  // namespace Fenwa
