#pragma once

#include <optional>
#include <string>

#include "common/text/json.hpp"

namespace camera {

/// What an expected value must be like. All members that are set must hold.
struct Condition {
    common::SharedJson is{};        ///< null: any value
    common::SharedJson contains{};  ///< a part of a text, or an element of a list; null: any value
    std::optional<double> above{};  ///< a number above this one
    std::optional<double> below{};  ///< a number below this one
    std::optional<double> from{};   ///< a number not below this one
    std::optional<double> to{};     ///< a number not above this one

    [[nodiscard]] bool met(const common::Json& value) const;
    /// `false`, `above 70.0`, `between 10.0 and 20.0`.
    [[nodiscard]] std::string text() const;
    /// Whether it compares numbers.
    [[nodiscard]] bool is_range() const { return above || below || from; }
};

}  // namespace camera
