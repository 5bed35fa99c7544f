#pragma once

// Precompiled after <nlohmann/json.hpp> in Debug builds (CMakeLists.txt): json.cpp instantiates the
// class once, and no other source does.
extern template class nlohmann::basic_json<nlohmann::ordered_map>;
