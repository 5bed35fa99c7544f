#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace camera {

/// The request that the camera serves when a button is pressed.
struct ButtonRequest {
    std::string type;  ///< "GET"
    std::string url;
};

/// A button on the camera's screen.
struct Button {
    std::string name;       ///< "activateWDR1"
    std::string nice_name;  ///< the text on the button
    ButtonRequest request;
};

/// A group of buttons, as a document defines it.
struct Feature {
    std::string name;       ///< its id: "WDR1"
    std::string nice_name;  ///< "WDR 1"
    std::vector<Button> buttons;
};

/// A mistake in a document: a whole sentence with its place.
class BadDocument : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// A longer document is refused before it is parsed.
inline constexpr std::size_t max_document_bytes = std::size_t{64} * 1024;

/// Reads a feature document: a JSON object with "name", "niceName" (strings), "featureGroups" (an
/// array of anything) and "features", an array of objects with "user" (an array of strings),
/// "name", "niceName", "info", "requestType", "requestPayload", "requestURL" (strings) and
/// "response" (a boolean). Names are not empty, and no two buttons share one; other members are
/// ignored.
/// @throws BadDocument with the byte of a syntax error, or the JSON pointer of a wrong member, and
///         for one that `common::parse_json` refuses.
[[nodiscard]] Feature feature_from_document(std::string_view document);

}  // namespace camera
