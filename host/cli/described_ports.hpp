#pragma once

#include <string>
#include <vector>

#include "common/text/json.hpp"

namespace host {

/// A port in the reply of `Describe`.
struct DescribedPort {
    std::string block;
    std::string port;
    std::string type;           ///< as in event lines
    const common::Json* value;  ///< of the reply

    [[nodiscard]] std::string name() const { return block + '.' + port; }
};

/// The ports of all blocks in file order, of each block those in `lists`, in that order.
/// @param description outlives the result.
/// @param lists "inputs", "terminated_inputs", "outputs".
/// @throws common::Json::exception if the description is of another form.
[[nodiscard]] std::vector<DescribedPort> ports_in(const common::Json& description,
                                                  const std::vector<std::string>& lists);

/// Checks that each glob matches a port.
/// @throws common::Failure (usage), with the nearest name.
void check_globs(const std::vector<std::string>& globs, const std::vector<DescribedPort>& ports,
                 const char* kind);

}  // namespace host
