#pragma once

#include <cstdarg>
#include <string>

namespace support {

/// Renders the arguments that stand behind a signature in an sd-bus call, each as its type and its
/// value: `s "main", d 0.5, a{sv} [s "key": <b true>]`. Doubles are written so that different
/// values give different texts. A null signature gives an empty text.
/// @throws std::invalid_argument for a signature that is none.
[[nodiscard]] std::string render_arguments(const char* types, std::va_list arguments);

/// The four parts of an address as they stand, with a blank before each; `null` for a null one.
[[nodiscard]] std::string render_address(const char* peer, const char* path, const char* interface,
                                         const char* member);

/// A C string in quotes, or `null`.
[[nodiscard]] std::string render_text(const char* text);

}  // namespace support
