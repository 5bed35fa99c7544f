#pragma once

// Precompiled after <nlohmann/json.hpp> for the tests (tests/CMakeLists.txt).
#include <ostream>

namespace nlohmann {

/// How GoogleTest shows a JSON value: as JSON, not as the containers that it could be read as.
inline void PrintTo(const ordered_json& value, std::ostream* out) {
    *out << value.dump();
}
inline void PrintTo(const json& value, std::ostream* out) {
    *out << value.dump();
}

}  // namespace nlohmann
