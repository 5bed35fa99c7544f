#pragma once

#include <string>
#include <utility>
#include <vector>

#include "framework/shared/configuration_access.hpp"

namespace support {

/// The keys of a configuration in their order, each with its value.
using Settings = std::vector<std::pair<std::string, Fenwa::BlockConfiguration::Value>>;

[[nodiscard]] inline Settings settings_of(const Fenwa::BlockConfiguration& config) {
    Settings settings;
    for (const auto& entry : Fenwa::ConfigurationAccess::entries(config))
        settings.emplace_back(entry.key(), entry.value());
    return settings;
}

}  // namespace support
