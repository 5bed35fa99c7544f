#pragma once

#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "common/text/json.hpp"
#include "host/plugin/type_data.hpp"

namespace host {

/// "min", "above", "max" and "below", those that there are.
[[nodiscard]] common::Json to_json(const Range& range);

/// "description", "unit", "range", "optional" and "unconnected", those that there are.
[[nodiscard]] common::Json to_json(const ItemData& item);

/// Adds the data of a type to its inspection: to the type "description", "one_per_host",
/// "bus_name" and "ascending", those that there are; to each key and port the members of its data.
/// Warns of keys and ports of the data that the inspection has not seen.
/// @param type as `inspect_type` returns it.
/// @param diagnostics the warnings go to its `other_file` of the data file.
[[nodiscard]] common::Json described(const common::Json& type, const TypeData& data,
                                     common::Diagnostics& diagnostics);

/// Warns of types in a data file that its plug-in does not register.
void report_unknown_types(const TypeCatalog& catalog, const std::vector<std::string>& types,
                          common::Diagnostics& diagnostics);

}  // namespace host
