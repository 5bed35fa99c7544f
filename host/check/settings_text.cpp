#include "host/check/settings_text.hpp"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "common/text/json.hpp"
#include "framework/shared/configuration_access.hpp"

namespace host {
namespace {

using common::Json;
using Fenwa::BlockConfiguration;

constexpr std::string_view digits = "0123456789abcdef";

std::uint8_t digit(char c) {
    const std::size_t value = digits.find(c);
    if (value == std::string_view::npos)
        throw std::invalid_argument("not a digit");
    return static_cast<std::uint8_t>(value);
}

BlockConfiguration::Value to_value(const Json& json) {
    if (json.is_boolean())
        return json.get<bool>();
    if (json.is_number_integer())
        return json.get<std::int64_t>();
    if (json.is_number())
        return json.get<double>();
    if (json.is_string())
        return json.get<std::string>();
    return json.get<std::vector<std::string>>();
}

}  // namespace

// CBOR and not JSON, which has neither infinities nor text that is not UTF-8.
std::string settings_to_text(const BlockConfiguration& settings) {
    Json entries = Json::array();
    for (const auto& entry : Fenwa::ConfigurationAccess::entries(settings))
        entries.push_back(
            Json::array({entry.key(), std::visit([](const auto& value) { return Json(value); },
                                                 entry.value())}));
    std::string message;
    for (const std::uint8_t byte : Json::to_cbor(entries)) {
        message += digits[byte >> 4U];
        message += digits[byte & 0xFU];
    }
    return message;
}

BlockConfiguration settings_from_text(const std::string& message) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i + 1 < message.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(digit(message[i]) << 4U | digit(message[i + 1])));
    std::vector<BlockConfiguration::KeyValue> entries;
    for (const Json& entry : Json::from_cbor(bytes))
        entries.emplace_back(entry.at(0).get<std::string>(), to_value(entry.at(1)));
    return BlockConfiguration(entries);
}

}  // namespace host
