#include "framework/shared/block_registry.hpp"

#include <algorithm>
#include <stdexcept>

namespace Fenwa {

BlockRegistry::~BlockRegistry() = default;

void BlockRegistry::register_factory(const std::string& type_name, const BlockFactory& factory) {
    if (find(type_name) != nullptr)
        throw std::invalid_argument("the block type '" + type_name + "' is registered already");
    factories_.emplace_back(type_name, factory);
}

const BlockFactory* BlockRegistry::find(const std::string& type_name) const {
    const auto found = std::find_if(factories_.begin(), factories_.end(),
                                    [&](const auto& entry) { return entry.first == type_name; });
    return found == factories_.end() ? nullptr : &found->second;
}

std::vector<std::string> BlockRegistry::type_names() const {
    std::vector<std::string> names;
    for (const auto& [name, factory] : factories_)
        names.push_back(name);
    return names;
}

}  // namespace Fenwa
