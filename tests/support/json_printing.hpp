#pragma once

// In place of <nlohmann/json.hpp> where a test compares values; precompiled for some tests.
#include <nlohmann/json.hpp>
#include <ostream>

#include "common/text/json.hpp"
#include "common/text/json_instances.hpp"

namespace nlohmann {

/// How GoogleTest shows a JSON value: as JSON, not as the containers that it could be read as.
inline void PrintTo(const ordered_json& value, std::ostream* out) {
    *out << value.dump();
}
inline void PrintTo(const json& value, std::ostream* out) {
    *out << value.dump();
}

}  // namespace nlohmann
