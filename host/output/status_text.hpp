#pragma once

#include <string>

#include "common/text/json.hpp"
#include "common/text/terminal.hpp"

namespace host {

/// The status of each block of a host.
/// @param description the reply of `Describe`.
/// @returns {"blocks": [{"name", "type", …the members of `status_json`}, …]}.
/// @throws common::Json::exception if the description has another form.
[[nodiscard]] common::Json status_in(const common::Json& description);

/// The status of blocks for people, a paragraph a block; what is normal and silent has no line.
/// @param status as `status_in` gives it.
/// @throws common::Json::exception, common::JsonError if it has another form.
[[nodiscard]] std::string status_as_text(const common::Json& status, const common::Palette& colors);

}  // namespace host
