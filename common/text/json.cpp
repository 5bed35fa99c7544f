#include "common/text/json.hpp"

#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include "common/text/line_text.hpp"

template class nlohmann::basic_json<nlohmann::ordered_map>;

namespace common {
namespace {

/// The library's text behind `mark`, which ends its own error number and place; it quotes what it
/// has read, which may be as long as the whole text.
std::string reason(const std::exception& error, std::string_view mark) {
    constexpr std::size_t longest = 200;
    std::string text = error.what();
    if (const std::size_t at = text.find(mark); at != std::string::npos)
        text.erase(0, at + mark.size());
    return shortened(text, longest);
}

}  // namespace

SharedJson share(Json value) {
    return std::make_shared<const Json>(std::move(value));
}

Json json_number(double value) {
    if (std::isnan(value))
        return "nan";
    if (std::isinf(value))
        return value > 0 ? "inf" : "-inf";
    return value;
}

std::string json_line(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void append_json(std::string& line, std::string_view text) {
    if (is_printable_ascii(text) && text.find('"') == text.npos && text.find('\\') == text.npos)
        line.append("\"").append(text).append("\"");
    else
        line += json_line(text);
}

std::string plain_text(const Json& value) {
    return value.is_string() ? value.get<std::string>() : json_line(value);
}

std::string json_ascii(const Json& value) {
    return value.dump(-1, ' ', true, Json::error_handler_t::replace);
}

template <class AnyJson>
AnyJson parse_json(std::string_view text, const std::string& what) {
    const auto accept = [&what](int depth, typename AnyJson::parse_event_t event, AnyJson&) {
        const bool opens = event == AnyJson::parse_event_t::object_start ||
                           event == AnyJson::parse_event_t::array_start;
        if (opens && depth >= static_cast<int>(max_json_depth))
            throw JsonError(what + " is nested deeper than " + std::to_string(max_json_depth) +
                            " arrays and objects");
        return true;
    };
    try {
        return AnyJson::parse(text, accept);
    } catch (const nlohmann::json::parse_error& error) {
        throw JsonError(what + " is not JSON, see byte " + std::to_string(error.byte) + ": " +
                        reason(error, ": "));
    } catch (const nlohmann::json::exception& error) {
        throw JsonError(what + " holds a number out of range: " + reason(error, "] "));
    }
}

Json parse_line(std::string_view line) {
    return Json::parse(line, nullptr, false);
}

template nlohmann::json parse_json(std::string_view text, const std::string& what);
template nlohmann::ordered_json parse_json(std::string_view text, const std::string& what);

}  // namespace common
