#pragma once

#include <cstddef>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "common/text/number_text.hpp"

namespace common {

/// Objects keep the order in which their members were written: event lines are a contract.
using Json = nlohmann::ordered_json;

/// For structs of headers, which know the name of Json only. Null for no value.
using SharedJson = std::shared_ptr<const Json>;
[[nodiscard]] SharedJson share(Json value);

/// A double as JSON: a number, or the string "nan", "inf" or "-inf", which JSON has no number for.
[[nodiscard]] Json json_number(double value);

/// One line of JSON without its line end. Bytes that are not UTF-8 become U+FFFD, so that a line
/// can always be written.
[[nodiscard]] std::string json_line(const Json& value);

/// Appends a text as a JSON string, as `json_line` writes it: for lines that come quickly.
void append_json(std::string& line, std::string_view text);

/// A string as it is, anything else as JSON: "36.5", "nan".
[[nodiscard]] std::string plain_text(const Json& value);

/// As `json_line`, with every character beyond ASCII escaped: D-Bus takes no text with
/// noncharacters such as U+FFFE, which a name or a setting may hold.
[[nodiscard]] std::string json_ascii(const Json& value);

/// A JSON text nested deeper than this many arrays and objects is refused, because writing,
/// copying and comparing such a value recurse.
inline constexpr std::size_t max_json_depth = 64;

/// A mistake in a JSON text from elsewhere: a sentence without its full stop.
class JsonError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Parses a text that may hold anything. `what` names it in sentences: "the answer".
/// @tparam AnyJson nlohmann::json or nlohmann::ordered_json, which is slow for objects with
///         thousands of members; json.cpp instantiates these two.
/// @throws JsonError when it is not JSON (with the byte), is nested deeper than `max_json_depth`,
///         or holds a number beyond the range of a double.
template <class AnyJson = Json>
[[nodiscard]] AnyJson parse_json(std::string_view text, const std::string& what);

/// The number that a value is, exactly; of a double also what `json_number` makes of one.
/// @throws JsonError when it is not one, or `Number` cannot hold it.
template <class Number>
[[nodiscard]] Number number_from_json(const Json& value) {
    const std::string text = plain_text(value);
    const std::optional<Number> number = parse_number<Number>(text);
    if (!number)
        throw JsonError(text + " is not a number of its type");
    return *number;
}

/// Parses a line of a child process, which may hold anything.
/// @returns a discarded value, neither an object nor an array, if it is not JSON.
[[nodiscard]] Json parse_line(std::string_view line);

}  // namespace common
