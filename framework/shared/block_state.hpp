#pragma once

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fenwa/block.hpp"
#include "framework/shared/host_access.hpp"

namespace Fenwa {

class ReadyQueue;

/// An object that a block asked to export; `slot` is null until the host adopts the block, and if
/// the export failed.
struct ExportedObject {
    std::string path;
    std::string interface;
    const sd_bus_vtable* vtable;
    void* userdata;
    sd_bus_slot* slot;
};

/// Data of a `Block`, apart from it so that its layout never changes.
struct Block::State {
    State(std::string block_name, BlockConfiguration block_config)
        : name(std::move(block_name)), config(std::move(block_config)) {}

    /// Exports one of `objects`, with the tools set. @returns the failure, if any.
    std::optional<RefusedExport> export_object(ExportedObject& object) const;

    std::string name;
    BlockConfiguration config;
    std::vector<std::unique_ptr<InPortProvider>> providers;
    std::vector<InPortInternal*> inports;
    std::vector<std::unique_ptr<OutPortInternal>> outports;
    std::vector<std::unique_ptr<EventPort>> eventports;
    std::vector<ExportedObject> objects;
    const InitTools* tools = nullptr;
    std::function<void(const RefusedExport&)> on_refused;
    void* host_data = nullptr;

    // For the ready queue; touched by every thread that fires.
    std::atomic<ReadyQueue*> queue{nullptr};
    std::atomic<bool> queued{false};
    Block* next = nullptr;
};

inline EventPort* HostAccess::eventport(const Block& block, const std::string& name) {
    const auto& ports = block.state_->eventports;
    const auto found = std::ranges::find(ports, name, &EventPort::name);
    return found == ports.end() ? nullptr : found->get();
}

}  // namespace Fenwa
