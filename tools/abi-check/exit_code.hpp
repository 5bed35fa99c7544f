#pragma once

namespace abi_check {

constexpr int exit_differs = 1;
constexpr int exit_usage = 2;
constexpr int exit_no_input = 66;  ///< a library cannot be read or loaded

}  // namespace abi_check
