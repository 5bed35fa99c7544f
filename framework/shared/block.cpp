#include "fenwa/block.hpp"

#include <algorithm>
#include <stdexcept>

#include "framework/shared/block_state.hpp"
#include "framework/shared/port_watch.hpp"

namespace Fenwa {
namespace {

template <class Ports>
std::vector<std::string> names_of(const Ports& ports) {
    std::vector<std::string> names;
    for (const auto& port : ports)
        names.push_back(port->name());
    return names;
}

template <class Ports>
std::vector<PortInfo> info_of(const Ports& ports) {
    std::vector<PortInfo> info;
    for (const auto& port : ports)
        info.push_back({port->name(), port->datatype()});
    return info;
}

template <class Ports>
auto find_port(const Ports& ports, const std::string& name) {
    return std::find_if(ports.begin(), ports.end(),
                        [&name](const auto& port) { return port->name() == name; });
}

}  // namespace

std::optional<RefusedExport> Block::State::export_object(ExportedObject& object) const {
    const int r =
        sd_bus_add_object_vtable(tools->sdbus_tools->get_bus(), &object.slot, object.path.c_str(),
                                 object.interface.c_str(), object.vtable, object.userdata);
    if (r >= 0)
        return std::nullopt;
    return RefusedExport{object.path, object.interface, r};
}

Block::Block(std::string name, const BlockConfiguration& config)
    : state_(std::make_unique<State>(std::move(name), config)) {}

Block::~Block() {
    for (ExportedObject& object : state_->objects)
        sd_bus_slot_unref(object.slot);
}

BlockConfiguration Block::setup(const BlockConfiguration& /*config*/) {
    return {};
}

std::string Block::get_name() const {
    return state_->name;
}

void Block::set_name(std::string name) {
    state_->name = std::move(name);
}

InPortInternal* Block::get_inport(const std::string& name) const {
    const auto found = find_port(state_->inports, name);
    return found == state_->inports.end() ? nullptr : *found;
}

std::vector<std::string> Block::get_inport_names() const {
    return names_of(state_->inports);
}

OutPortInternal* Block::get_outport(const std::string& name) const {
    const auto found = find_port(state_->outports, name);
    return found == state_->outports.end() ? nullptr : found->get();
}

std::vector<std::string> Block::get_outport_names() const {
    return names_of(state_->outports);
}

std::vector<PortInfo> Block::get_inports_info() const {
    return info_of(state_->inports);
}

std::vector<PortInfo> Block::get_outports_info() const {
    return info_of(state_->outports);
}

std::vector<PortInfo> Block::get_fdports_info() const {
    return {};
}

void Block::start() {}

void Block::stop() {}

bool Block::run() {
    return true;
}

void Block::reconfigure(const BlockConfiguration& /*before*/, const BlockConfiguration& /*after*/) {
}

EventPort* Block::make_eventport(const std::string& name) {
    state_->eventports.push_back(std::unique_ptr<EventPort>(new EventPort(name, *this)));
    return state_->eventports.back().get();
}

InPortInternal* Block::add_inport(std::unique_ptr<InPortProvider> provider) {
    InPortInternal* const port = provider->get_port();
    state_->providers.push_back(std::move(provider));
    state_->inports.push_back(port);
    PortWatch::added(port);
    return port;
}

OutPortInternal* Block::add_outport(std::unique_ptr<OutPortInternal> port) {
    state_->outports.push_back(std::move(port));
    PortWatch::added(state_->outports.back().get());
    return state_->outports.back().get();
}

void Block::add_dbus(const std::string& path, const std::string& interface,
                     const sd_bus_vtable* vtable, void* userdata) {
    state_->objects.push_back({path, interface, vtable, userdata, nullptr});
    if (state_->tools == nullptr)
        return;
    const auto refused = state_->export_object(state_->objects.back());
    if (refused && state_->on_refused)
        state_->on_refused(*refused);
}

const InitTools& Block::get_tools() const {
    if (state_->tools == nullptr)
        throw std::logic_error("block '" + state_->name +
                               "' asked for its tools before the host had given them");
    return *state_->tools;
}

}  // namespace Fenwa
