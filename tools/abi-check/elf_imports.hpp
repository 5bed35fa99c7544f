#pragma once

#include <string>
#include <vector>

namespace abi_check {

/// The symbols that a shared library takes from others, without their versions, in the order of the
/// file. Weak ones, which may be missing, are left out.
/// @throws LoadError when the file cannot be read or is not a shared library for this machine.
std::vector<std::string> elf_imports(const std::string& path);

}  // namespace abi_check
