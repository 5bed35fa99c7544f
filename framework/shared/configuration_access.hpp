#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fenwa/api.hpp"
#include "fenwa/block_configuration.hpp"

namespace Fenwa {

/// One call of a getter.
struct KeyRead {
    std::string key;
    std::string type;  ///< "int", "bool", "float", "double" or "string"
    /// The default of the getter; none if the key is required.
    std::optional<BlockConfiguration::Value> fallback;
    /// The value of the key, of any type; none if the key is missing.
    std::optional<BlockConfiguration::Value> found;
};

/// Watches how a configuration is read. Called on whichever thread reads.
class FENWA_API ConfigurationObserver {
  public:
    virtual ~ConfigurationObserver();
    /// A getter was called; it may go on to throw.
    virtual void on_read(const KeyRead& read) = 0;
    /// The getter is about to throw `error`. @returns the value that it gives instead, so that a
    ///          probe finds the next mistake too: the type's zero if it is of another type. Nothing
    ///          lets it throw.
    virtual std::optional<BlockConfiguration::Value> on_error(const ConfigurationError& error) = 0;
};

/// Access of a host to configurations, beyond the interface for blocks.
class FENWA_API ConfigurationAccess {
  public:
    /// The same settings, whose getters call `observer`. A combination with another configuration
    /// stays observed.
    [[nodiscard]] static BlockConfiguration observed(
        const BlockConfiguration& config, std::shared_ptr<ConfigurationObserver> observer);

    /// The value of one key, or null, without a call of the observer.
    [[nodiscard]] static const BlockConfiguration::Value* find(const BlockConfiguration& config,
                                                               const std::string& key);

    /// A value as a noun phrase: "the integer 5", "the string \"main\"", "a float".
    [[nodiscard]] static std::string describe(const BlockConfiguration::Value& value);

    /// All settings, in the order in which they were given.
    [[nodiscard]] static const std::vector<BlockConfiguration::KeyValue>& entries(
        const BlockConfiguration& config);
};

}  // namespace Fenwa
