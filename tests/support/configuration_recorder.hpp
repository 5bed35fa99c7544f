#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "framework/shared/configuration_access.hpp"

namespace support {

/// Records how configurations are read: "TYPE KEY", with " or a default" where one was given.
class ConfigurationRecorder final : public Fenwa::ConfigurationObserver {
  public:
    void on_read(const Fenwa::KeyRead& read) override {
        reads.push_back(read.type + " " + read.key + (read.fallback ? " or a default" : ""));
        if (on_each)
            on_each(read.key);
    }
    std::optional<Fenwa::BlockConfiguration::Value> on_error(
        const Fenwa::ConfigurationError& /*error*/) override {
        return instead;
    }

    std::vector<std::string> reads;
    std::optional<Fenwa::BlockConfiguration::Value> instead;  ///< of an error
    std::function<void(const std::string& key)> on_each;
};

}  // namespace support
