#pragma once

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

/// Makes a blocking call of the bus daemon, for a block that cannot be built without a bus.
inline void ask_the_daemon(const Fenwa::InitTools& tools) {
    tools.sdbus_tools->call_method("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                   "org.freedesktop.DBus", "GetId", nullptr, nullptr);
}

/// One log line of level 4, "NAME: TEXT".
inline void say(const Fenwa::Block& block, const std::string& text) {
    Fenwa::ilog(4) << block.get_name() << ": " << text;
}

}  // namespace probe
