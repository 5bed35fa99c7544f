#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fenwa/api.hpp"
#include "fenwa/block_configuration.hpp"

namespace Fenwa {

/// One look of a block at one of its settings.
struct KeyRead {
    std::string key;
    std::string type;  ///< "int", "bool", "float", "double" or "string"
    /// The default that the getter was given; none where the key is required.
    std::optional<BlockConfiguration::Value> fallback;
    /// What stands there, of whatever type; none where the key is missing.
    std::optional<BlockConfiguration::Value> found;
};

/// Watches how a configuration is read. Called on whichever thread reads.
class FENWA_API ConfigurationObserver {
  public:
    virtual ~ConfigurationObserver();
    /// A getter was called, whatever came of it.
    virtual void on_read(const KeyRead& read) = 0;
    /// The getter is about to throw `error`. @returns the value that it gives instead, so that a
    ///          probe finds the next mistake too: the type's zero if it is of another type. Nothing
    ///          lets it throw.
    virtual std::optional<BlockConfiguration::Value> on_error(const ConfigurationError& error) = 0;
};

/// What a host may do with configurations beyond what blocks see.
class FENWA_API ConfigurationAccess {
  public:
    /// The same settings, read under the eyes of `observer`. A combination with another
    /// configuration stays observed.
    [[nodiscard]] static BlockConfiguration observed(
        const BlockConfiguration& config, std::shared_ptr<ConfigurationObserver> observer);

    /// The value of one key, or null; no observer is told.
    [[nodiscard]] static const BlockConfiguration::Value* find(const BlockConfiguration& config,
                                                               const std::string& key);

    /// What a value is, for a sentence: "the integer 5", "the string \"main\"", "a float".
    [[nodiscard]] static std::string describe(const BlockConfiguration::Value& value);

    /// All settings, in the order in which they were given.
    [[nodiscard]] static const std::vector<BlockConfiguration::KeyValue>& entries(
        const BlockConfiguration& config);
};

}  // namespace Fenwa
