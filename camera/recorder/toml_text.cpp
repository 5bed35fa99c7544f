#include "camera/recorder/toml_text.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>

namespace camera {
namespace {

using common::Json;

/// JSON and TOML escape alike, but for DEL.
std::string toml_string(const Json& value) {
    std::string text = common::json_line(value);
    for (std::size_t at = 0; (at = text.find('\x7f', at)) != std::string::npos;)
        text.replace(at, 1, "\\u007f");
    return text;
}

std::string key_text(const std::string& key) {
    const bool is_bare = !key.empty() && std::ranges::all_of(key, [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_' || c == '-';
    });
    return is_bare ? key : toml_string(key);
}

template <class List, class Text>
std::string joined(const List& list, const Text& text_of) {
    std::string text;
    for (const auto& each : list)
        text.append(text.empty() ? "" : ", ").append(text_of(each));
    return text;
}

}  // namespace

std::string toml_text(const Json& value) {
    if (value.is_string())
        return toml_string(value);
    if (value.is_array())
        return fmt::format("[{}]", joined(value, toml_text));
    if (value.is_object())
        return fmt::format("{{{}}}", joined(value.items(), [](const auto& entry) {
                               return key_text(entry.key()) + " = " + toml_text(entry.value());
                           }));
    const bool too_large =
        value.is_number_unsigned() && value.get<std::uint64_t>() > std::uint64_t{INT64_MAX};
    return too_large ? toml_string(value.dump()) : value.dump();
}

}  // namespace camera
