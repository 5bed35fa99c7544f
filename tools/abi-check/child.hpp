#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/abi-check/row.hpp"

namespace abi_check {

/// A library cannot be read or loaded: nothing can be compared.
class LoadError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Takes the rows of a check as they are found.
using AddRow = std::function<void(Row)>;

/// Runs a check in a child process, so that a library that crashes or hangs ends that check alone.
/// @param name what the check is called in the row that a crash, an exception or a check of more
///        than ten seconds adds.
/// @throws LoadError which the check has thrown; std::system_error without a child.
std::vector<Row> run_in_child(const std::string& name,
                              const std::function<void(const AddRow&)>& check);

}  // namespace abi_check
