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
    bool on_error(const Fenwa::ConfigurationError& /*error*/) override { return zero_on_error; }

    std::vector<std::string> reads;
    bool zero_on_error = false;
    std::function<void(const std::string& key)> on_each;
};

}  // namespace support
