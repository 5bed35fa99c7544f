#pragma once

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "fenwa/api.hpp"

namespace Fenwa {

class ConfigurationAccess;

/// A required key is missing, or a key holds a value of another type than the one asked for.
class FENWA_API ConfigurationError : public std::runtime_error {
  public:
    /// @param wanted the accepted type: "int", "bool", "float", "double" or "string", with a range
    ///        after it if there is one ("int of 1 or more").
    /// @param found the value of the key, such as "a string"; empty if the key is missing.
    ConfigurationError(std::string key, std::string wanted, std::string found);
    ~ConfigurationError() override;

    [[nodiscard]] const std::string& key() const noexcept { return key_; }
    [[nodiscard]] const std::string& wanted() const noexcept { return wanted_; }
    [[nodiscard]] const std::string& found() const noexcept { return found_; }
    [[nodiscard]] bool missing() const noexcept { return found_.empty(); }

  private:
    std::string key_;
    std::string wanted_;
    std::string found_;
};

/// An immutable map of one block's settings. Copies share their storage and are cheap; reading is
/// safe on any thread.
class FENWA_API BlockConfiguration {
  public:
    /// Value of a key. Integers are 64 bits wide, as in the graph file.
    using Value = std::variant<bool, std::int64_t, double, std::string, std::vector<std::string>>;

    /// One key with its value, as an initialiser list has it.
    class FENWA_API KeyValue {
      public:
        /// Accepts a literal as a key, and keeps it from becoming a value by accident.
        class StringWrapper {
          public:
            StringWrapper(const char* text) : text_(text) {}             // NOLINT: implicit
            StringWrapper(std::string text) : text_(std::move(text)) {}  // NOLINT: implicit
            [[nodiscard]] const std::string& text() const { return text_; }

          private:
            std::string text_;
        };

        KeyValue(StringWrapper key, bool value) : key_(key.text()), value_(value) {}
        KeyValue(StringWrapper key, double value) : key_(key.text()), value_(value) {}
        /// A string (a list of one) or a list of strings.
        KeyValue(StringWrapper key, std::initializer_list<const char*> values)
            : key_(key.text()), value_(std::vector<std::string>(values.begin(), values.end())) {}
        template <std::integral Integer>
        requires(!std::same_as<Integer, bool>) KeyValue(StringWrapper key, Integer value)
            : key_(key.text()), value_(static_cast<std::int64_t>(value)) {}
        KeyValue(StringWrapper key, Value value) : key_(key.text()), value_(std::move(value)) {}
        /// A bare C string would become a bool.
        KeyValue(StringWrapper key, const char* value) = delete;

        [[nodiscard]] const std::string& key() const noexcept { return key_; }
        [[nodiscard]] const Value& value() const noexcept { return value_; }

      private:
        std::string key_;
        Value value_;
    };

    BlockConfiguration();
    /// The last of equal keys counts, in the place of the first.
    BlockConfiguration(std::initializer_list<KeyValue> entries);  // NOLINT: implicit
    explicit BlockConfiguration(const std::vector<KeyValue>& entries);

    /// Strict getters. An integer is also a float and a double, and a list of one string is also a
    /// string; nothing else is converted, and an integer that does not fit into an int is a wrong
    /// value. getFloat rounds to the nearest float.
    /// @throws ConfigurationError when the key is missing or of another type.
    [[nodiscard]] int getInt(const std::string& key) const;
    [[nodiscard]] bool getBool(const std::string& key) const;
    [[nodiscard]] float getFloat(const std::string& key) const;
    [[nodiscard]] double getDouble(const std::string& key) const;
    [[nodiscard]] std::string getString(const std::string& key) const;

    /// The same with a value for a missing key.
    /// @throws ConfigurationError when the key has a value of another type.
    [[nodiscard]] int getInt(const std::string& key, int fallback) const;
    [[nodiscard]] bool getBool(const std::string& key, bool fallback) const;
    [[nodiscard]] float getFloat(const std::string& key, float fallback) const;
    [[nodiscard]] double getDouble(const std::string& key, double fallback) const;
    [[nodiscard]] std::string getString(const std::string& key, const std::string& fallback) const;

    /// All settings of both. The right side wins where both have a key: `defaults + given`.
    FENWA_API friend BlockConfiguration operator+(const BlockConfiguration& left,
                                                  const BlockConfiguration& right);

  private:
    friend class ConfigurationAccess;

    struct Storage;
    explicit BlockConfiguration(std::shared_ptr<const Storage> storage);

    template <class T>
    T get(const std::string& key, const T* fallback) const;
    [[nodiscard]] const Storage& storage() const;

    std::shared_ptr<const Storage> storage_;  ///< null, which is empty, after a move
};

}  // namespace Fenwa
