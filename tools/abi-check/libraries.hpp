#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/abi-check/options.hpp"

namespace abi_check {

/// The framework's two libraries, loaded for good: nothing unloads them.
class Framework {
  public:
    /// @throws LoadError
    explicit Framework(const Options& options);

    /// Address of an exported symbol; null if there is none.
    [[nodiscard]] void* find(const std::string& symbol) const;

    /// The same as a function. @throws std::runtime_error that names a missing symbol.
    template <class Function>
    [[nodiscard]] Function* function(const std::string& symbol) const {
        return reinterpret_cast<Function*>(required(symbol));
    }

  private:
    [[nodiscard]] void* required(const std::string& symbol) const;

    void* shared_;
    void* algo_tools_;
};

/// Loads the plug-in into a process with a framework, at once with all its symbols.
/// @throws std::runtime_error that says what is missing.
void* load_plugin(const std::string& path);

/// File name of the library that an address is in, without folders; empty if it is in none.
std::string library_of(const void* address);
/// The symbol that the loader has put at a place of a library's data, such as the slot of a virtual
/// table; empty if it put an address there without a name. Functions with the same code may share
/// an address, but not the name.
std::string symbol_put_at(const void* place);
/// The exported symbol at an address; empty if there is none.
std::string symbol_at(const void* address);
/// Bytes of the exported object that begins at an address; nothing if none does.
std::optional<std::size_t> exported_size_at(const void* address);

}  // namespace abi_check
