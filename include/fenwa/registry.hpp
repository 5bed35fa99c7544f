#pragma once

#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "fenwa/block.hpp"

namespace Fenwa {

/// Makes a block of one type from its instance name, its configuration and its tools. Throws what
/// the block's constructor throws.
using BlockFactory = std::function<std::unique_ptr<Block>(
    std::string name, const BlockConfiguration& config, const InitTools& tools)>;

/// Registry of the block types of plug-ins, for `lib_register_cpp`.
///
/// ABI: `register_factory` is virtual operation 0.
class FENWA_API IRegistry {
  public:
    /// Stores the factory under the type's name. @throws std::exception when the name is taken.
    virtual void register_factory(const std::string& type_name, const BlockFactory& factory) = 0;

    /// Registers the block class T, built from (name, config, tools) or else from (name, config).
    template <class T>
    void register_block(std::string type_name) {
        // Without captures, so that the std::function holds the lambda in place.
        const BlockFactory factory = [](std::string given, const BlockConfiguration& config,
                                        const InitTools& tools) -> std::unique_ptr<Block> {
            std::string name = std::move(given);
            if constexpr (std::is_constructible_v<T, std::string, const BlockConfiguration&,
                                                  const InitTools&>) {
                return std::unique_ptr<Block>(new T(std::move(name), config, tools));
            } else {
                static_cast<void>(tools);
                return std::unique_ptr<Block>(new T(std::move(name), config));
            }
        };
        register_factory(type_name, factory);
    }

  protected:
    IRegistry() = default;
    // The framework owns the registry: it is not deleted through this interface.
    ~IRegistry() = default;
};

}  // namespace Fenwa

/// The entry point that a plug-in exports. Called once, after the library was loaded.
/// @returns 0; any other value means that the library cannot be used.
extern "C" FENWA_API int lib_register_cpp(Fenwa::IRegistry* registry);
