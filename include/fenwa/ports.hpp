#pragma once

#include <memory>
#include <string>

#include "fenwa/block.hpp"

namespace Fenwa {

/// Makes an input of T's datatype and adds it to `block`, in its constructor.
/// @param triggers whether a new value makes the framework run the block.
/// @returns the port, owned by the block.
template <class T>
InPort<T>* add_inport(Block& block, const std::string& name, bool triggers = true) {
    auto port = std::make_unique<InPort<T>>(name, datatype_of<T>(), triggers);
    InPort<T>* const added = port.get();
    block.add_inport(std::move(port));
    return added;
}

/// Makes an output of T's datatype, which holds a T{}, and adds it to `block`, in its constructor.
/// @returns the port, owned by the block.
template <class T>
OutPort<T>* add_outport(Block& block, const std::string& name) {
    auto port = std::make_unique<OutPort<T>>(name, datatype_of<T>());
    OutPort<T>* const added = port.get();
    block.add_outport(std::move(port));
    return added;
}

}  // namespace Fenwa
