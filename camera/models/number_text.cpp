#include "camera/models/number_text.hpp"

#include "common/text/json.hpp"

namespace camera {

std::string number_text(double value) {
    return common::plain_text(common::json_number(value));
}

}  // namespace camera
