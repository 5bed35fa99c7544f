#pragma once

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>

namespace abi_test {

/// The entry at a slot of the object's first virtual table, as a function that takes the object as
/// its first argument: the form that a compiled caller uses.
template <class Function>
Function* entry(const void* object, std::size_t slot) {
    const void* const* table = nullptr;
    std::memcpy(&table, object, sizeof(table));
    Function* function = nullptr;
    std::memcpy(&function, &table[slot], sizeof(function));
    return function;
}

/// Calls the virtual operation at a slot. `Parameters` are those of the operation, as declared.
template <class Result, class... Parameters>
Result call_slot(void* object, std::size_t slot, std::type_identity_t<Parameters>... arguments) {
    return entry<Result(void*, Parameters...)>(object, slot)(
        object, std::forward<Parameters>(arguments)...);
}

}  // namespace abi_test
