#pragma once

#include <memory>
#include <string>

#include "fenwa/block.hpp"

namespace blocks {

/// Makes and adds an input of T's datatype, which runs the block when a value comes. Owned by the
/// block.
template <class T>
Fenwa::InPort<T>* make_inport(Fenwa::Block& block, const std::string& name) {
    auto port = std::make_unique<Fenwa::InPort<T>>(name, Fenwa::datatype_of<T>(), true);
    Fenwa::InPort<T>* const typed = port.get();
    block.add_inport(std::move(port));
    return typed;
}

/// Makes and adds an output of T's datatype, holding a T{}. Owned by the block.
template <class T>
Fenwa::OutPort<T>* make_outport(Fenwa::Block& block, const std::string& name) {
    auto port = std::make_unique<Fenwa::OutPort<T>>(name, Fenwa::datatype_of<T>());
    Fenwa::OutPort<T>* const typed = port.get();
    block.add_outport(std::move(port));
    return typed;
}

}  // namespace blocks
