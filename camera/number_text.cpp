#include "camera/number_text.hpp"

#include "common/json_text.hpp"
#include "common/number_text.hpp"

namespace camera {

std::string number_text(double value) {
    const tool::Json number = tool::json_number(value);
    return number.is_string() ? number.get<std::string>() : number.dump();
}

std::optional<double> number_of(const std::string& text) {
    return tool::parse_number<double>(text);
}

}  // namespace camera
