#include "framework/shared/host_access.hpp"

#include <algorithm>

#include "framework/shared/block_state.hpp"

namespace Fenwa {

std::vector<RefusedExport> HostAccess::adopt(
    Block& block, const InitTools& tools, ReadyQueue& queue,
    std::function<void(const RefusedExport&)> on_refused_later) {
    Block::State& state = *block.state_;
    state.tools = &tools;
    state.on_refused = std::move(on_refused_later);
    std::vector<RefusedExport> refused;
    for (ExportedObject& object : state.objects) {
        if (auto failure = state.export_object(object))
            refused.push_back(*std::move(failure));
    }
    state.queue.store(&queue);
    // Fires of the constructor had no queue.
    for (const auto& port : state.eventports) {
        if (port->pending_.load())
            ReadyQueue::make_ready(block);
    }
    return refused;
}

void HostAccess::set_host_data(Block& block, void* data) {
    block.state_->host_data = data;
}

void* HostAccess::host_data(const Block& block) {
    return block.state_->host_data;
}

std::vector<std::pair<std::string, std::string>> HostAccess::exported_objects(const Block& block) {
    std::vector<std::pair<std::string, std::string>> objects;
    for (const ExportedObject& object : block.state_->objects)
        objects.emplace_back(object.path, object.interface);
    return objects;
}

bool HostAccess::has_exported(const Block& block, const std::string& path,
                              const std::string& interface) {
    const std::vector<ExportedObject>& objects = block.state_->objects;
    return std::any_of(objects.begin(), objects.end(), [&](const ExportedObject& object) {
        return object.slot != nullptr && object.path == path && object.interface == interface;
    });
}

const BlockConfiguration& HostAccess::configuration(const Block& block) {
    return block.state_->config;
}

const std::vector<InPortInternal*>& HostAccess::inports(const Block& block) {
    return block.state_->inports;
}

std::vector<OutPortInternal*> HostAccess::outports(const Block& block) {
    std::vector<OutPortInternal*> ports;
    for (const auto& port : block.state_->outports)
        ports.push_back(port.get());
    return ports;
}

std::vector<std::string> HostAccess::eventport_names(const Block& block) {
    std::vector<std::string> names;
    for (const auto& port : block.state_->eventports)
        names.push_back(port->name());
    return names;
}

bool HostAccess::arm(Block& block) {
    bool any = false;
    const auto arm_port = [&any](Port& port) {
        if (port.pending_.exchange(false))
            port.triggered_ = true;
        any = any || port.triggered_;
    };
    for (InPortInternal* port : block.state_->inports)
        arm_port(*port);
    for (const auto& port : block.state_->eventports)
        arm_port(*port);
    return any;
}

void HostAccess::disarm(Block& block) {
    for (InPortInternal* port : block.state_->inports)
        port->reset(true);
    for (const auto& port : block.state_->eventports)
        port->reset(true);
}

void HostAccess::connect(InPortInternal& port, const void* value) {
    port.source_ = value;
}

const void* HostAccess::source(const InPortInternal& port) {
    return port.source_;
}

const void* HostAccess::value_address(const OutPortInternal& port) {
    return port.value_;
}

void HostAccess::notify(InPortInternal& port, Block& block) {
    port.set_pending();
    if (port.triggers())
        ReadyQueue::make_ready(block);
}

}  // namespace Fenwa
