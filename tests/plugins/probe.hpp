#pragma once

#include <memory>
#include <string>

#include "fenwa/fenwa.hpp"

/// Block types that make visible what a host does with blocks. Each group of them registers itself.
namespace probe {

void register_life_blocks(Fenwa::IRegistry& registry);
void register_port_blocks(Fenwa::IRegistry& registry);
void register_settings_blocks(Fenwa::IRegistry& registry);
void register_setup_blocks(Fenwa::IRegistry& registry);
void register_bus_blocks(Fenwa::IRegistry& registry);
void register_thread_blocks(Fenwa::IRegistry& registry);
void register_log_blocks(Fenwa::IRegistry& registry);
void register_stop_blocks(Fenwa::IRegistry& registry);

/// Adds an input, or an output, of T's datatype to a block, which owns it.
template <class T>
Fenwa::InPort<T>& add_input(Fenwa::Block& block, const std::string& name, bool triggers = true) {
    auto port = std::make_unique<Fenwa::InPort<T>>(name, Fenwa::datatype_of<T>(), triggers);
    Fenwa::InPort<T>& typed = *port;
    block.add_inport(std::move(port));
    return typed;
}

template <class T>
Fenwa::OutPort<T>& add_output(Fenwa::Block& block, const std::string& name) {
    auto port = std::make_unique<Fenwa::OutPort<T>>(name, Fenwa::datatype_of<T>());
    Fenwa::OutPort<T>& typed = *port;
    block.add_outport(std::move(port));
    return typed;
}

/// One log line of level 4, "NAME: TEXT".
inline void say(const Fenwa::Block& block, const std::string& text) {
    Fenwa::ilog(4) << block.get_name() << ": " << text;
}

}  // namespace probe
