#include "common/text/xml_text.hpp"

#include "common/text/line_text.hpp"

namespace common {

std::string xml_escaped(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
        switch (c) {
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            default:
                escaped += c;
        }
    }
    return escaped;
}

std::string xml_attribute(std::string_view text) {
    std::string attribute;
    const std::string escaped = xml_escaped(one_line(text));
    for (std::size_t i = 0; i < escaped.size(); ++i) {
        const std::string_view rest = std::string_view(escaped).substr(i);
        if (escaped[i] == '"') {
            attribute += "&quot;";
        } else if (rest.starts_with("\xEF\xBF\xBE") || rest.starts_with("\xEF\xBF\xBF")) {
            attribute += "\xEF\xBF\xBD";  // U+FFFE and U+FFFF become U+FFFD
            i += 2;
        } else {
            attribute += escaped[i];
        }
    }
    return attribute;
}

}  // namespace common
