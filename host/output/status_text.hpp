#pragma once

#include <string>

#include "common/text/json.hpp"
#include "common/text/terminal.hpp"

namespace host {

/// The status of blocks for people, a paragraph a block; what is normal and silent has no line.
/// @param status {"blocks": [{"name", "type", …the members of `status_json`}, …]}.
/// @throws common::Json::exception if it has another form.
[[nodiscard]] std::string status_as_text(const common::Json& status, const common::Palette& colors);

}  // namespace host
