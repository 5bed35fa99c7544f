#include "camera/models/number_text.hpp"

#include "common/text/json.hpp"
#include "common/text/number_text.hpp"

namespace camera {

std::string number_text(double value) {
    const common::Json number = common::json_number(value);
    return number.is_string() ? number.get<std::string>() : number.dump();
}

std::optional<double> number_of(const std::string& text) {
    return common::parse_number<double>(text);
}

}  // namespace camera
