#pragma once

#include "tools/abi-check/child.hpp"
#include "tools/abi-check/options.hpp"

namespace abi_check {

// Each check runs in a process of its own, loads what it needs and adds its rows. They throw
// LoadError where a library cannot be read or loaded, and std::runtime_error for a missing symbol.

/// Each symbol of the framework that the plug-in asks for is there, and in which library.
void check_symbols(const Options& options, const AddRow& add);

/// The virtual tables of the framework's classes have the operations of the headers in their slots.
void check_slots(const Options& options, const AddRow& add);

/// The constructors of the framework write as many bytes as the headers say.
void check_sizes(const Options& options, const AddRow& add);
/// Settings and ports that are made as a plug-in makes them are read as they are meant.
void check_settings(const Options& options, const AddRow& add);
void check_ports(const Options& options, const AddRow& add);
void check_debug_data(const Options& options, const AddRow& add);

/// The plug-in loads and registers its seven types, and no other.
void check_types(const Options& options, const AddRow& add);
/// Blocks that need no bus to be built are built, give their name and are destroyed.
void check_blocks(const Options& options, const AddRow& add);

/// Median of 25 processes that load the plug-in and let it register, once the framework is there.
std::vector<Row> measure_time(const Options& options);

}  // namespace abi_check
