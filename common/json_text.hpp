#pragma once

#include <nlohmann/json.hpp>

namespace tool {

/// Objects keep the order in which their members were written: event lines are a contract.
using Json = nlohmann::ordered_json;

/// A double as JSON: a number, or the string "nan", "inf" or "-inf", which JSON has no number for.
[[nodiscard]] Json json_number(double value);

/// One line of JSON without its line end. Bytes that are not UTF-8 become U+FFFD, so that a line
/// can always be written.
[[nodiscard]] std::string json_line(const Json& value);

/// The same with every character beyond ASCII escaped: D-Bus takes no text with noncharacters such
/// as U+FFFE, which a name or a setting may hold.
[[nodiscard]] std::string json_ascii(const Json& value);

}  // namespace tool
