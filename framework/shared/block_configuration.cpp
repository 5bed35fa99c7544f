#include "fenwa/block_configuration.hpp"

#include <limits>
#include <optional>

#include "framework/shared/configuration_access.hpp"
#include "framework/shared/key_index.hpp"

namespace Fenwa {

struct BlockConfiguration::Storage {
    std::vector<KeyValue> entries;  ///< in the order in which their keys were first given
    KeyIndex index;
    std::shared_ptr<ConfigurationObserver> observer;

    [[nodiscard]] const Value* find(const std::string& key) const {
        const std::size_t place = index.find(key, entries, &KeyValue::key);
        return place == KeyIndex::none ? nullptr : &entries[place].value();
    }

    void set(const KeyValue& entry) {
        const std::size_t place = index.find(entry.key(), entries, &KeyValue::key);
        if (place != KeyIndex::none) {
            entries[place] = copy_of(entry);
            return;
        }
        entries.push_back(copy_of(entry));
        index.extend(entries, &KeyValue::key);
    }

    template <class Entries>
    void set_all(const Entries& given) {
        for (const KeyValue& entry : given)
            set(entry);
    }

    template <class Entries>
    static std::shared_ptr<Storage> of(const Entries& entries) {
        auto storage = std::make_shared<Storage>();
        storage->entries.reserve(entries.size());
        storage->set_all(entries);
        return storage;
    }

  private:
    /// The value is copied before there is a variant for it: a variant that throws in its copy
    /// constructor, for want of memory, crashes in libstdc++ 12 when no move of its values throws.
    static KeyValue copy_of(const KeyValue& entry) {
        return std::visit(
            [&entry](auto value) { return KeyValue(entry.key(), Value(std::move(value))); },
            entry.value());
    }
};

namespace {

using Value = BlockConfiguration::Value;

template <class T>
constexpr const char* type_name = nullptr;
template <>
constexpr const char* type_name<int> = "int";
template <>
constexpr const char* type_name<bool> = "bool";
template <>
constexpr const char* type_name<float> = "float";
template <>
constexpr const char* type_name<double> = "double";
template <>
constexpr const char* type_name<std::string> = "string";

template <class T>
Value to_value(const T& value) {
    if constexpr (std::is_same_v<T, int>)
        return static_cast<std::int64_t>(value);
    else if constexpr (std::is_same_v<T, float>)
        return static_cast<double>(value);
    else
        return value;
}

/// The value as a T, or nothing where it is of another type.
template <class T>
std::optional<T> as(const Value& value) {
    if constexpr (std::is_same_v<T, int>) {
        const auto* integer = std::get_if<std::int64_t>(&value);
        if (integer == nullptr || *integer < std::numeric_limits<int>::min() ||
            *integer > std::numeric_limits<int>::max())
            return std::nullopt;
        return static_cast<int>(*integer);
    } else if constexpr (std::is_floating_point_v<T>) {
        if (const auto* integer = std::get_if<std::int64_t>(&value))
            return static_cast<T>(*integer);
        if (const auto* number = std::get_if<double>(&value))
            return static_cast<T>(*number);
        return std::nullopt;
    } else if constexpr (std::is_same_v<T, std::string>) {
        if (const auto* text = std::get_if<std::string>(&value))
            return *text;
        const auto* list = std::get_if<std::vector<std::string>>(&value);
        return list != nullptr && list->size() == 1 ? std::optional(list->front()) : std::nullopt;
    } else {
        const auto* exact = std::get_if<T>(&value);
        return exact == nullptr ? std::nullopt : std::optional(*exact);
    }
}

/// The type, with its range if that is the reason, that a getter accepts instead of `value`.
template <class T>
std::string wanted_for(const Value& value) {
    if (std::is_same_v<T, int> && std::holds_alternative<std::int64_t>(value))
        return "int from " + std::to_string(std::numeric_limits<int>::min()) + " to " +
               std::to_string(std::numeric_limits<int>::max());
    return type_name<T>;
}

struct Describe {
    std::string operator()(bool value) const {
        return std::string("the boolean ") + (value ? "true" : "false");
    }
    std::string operator()(std::int64_t value) const {
        return "the integer " + std::to_string(value);
    }
    std::string operator()(double /*value*/) const { return "a float"; }
    std::string operator()(const std::string& value) const {
        constexpr std::size_t longest = 60;
        return "the string \"" + value.substr(0, longest) + (value.size() > longest ? "…\"" : "\"");
    }
    std::string operator()(const std::vector<std::string>& value) const {
        return "an array of " + std::to_string(value.size()) + " strings";
    }
};

std::string sentence(const std::string& key, const std::string& wanted, const std::string& found) {
    const std::string article = wanted.starts_with("int") ? "an " : "a ";
    if (found.empty())
        return "the required key '" + key + "' (" + article + wanted + ") is missing";
    return "the key '" + key + "' must be " + article + wanted + ", not " + found;
}

}  // namespace

ConfigurationError::ConfigurationError(std::string key, std::string wanted, std::string found)
    : std::runtime_error(sentence(key, wanted, found)),
      key_(std::move(key)),
      wanted_(std::move(wanted)),
      found_(std::move(found)) {}

ConfigurationError::~ConfigurationError() = default;

BlockConfiguration::BlockConfiguration() : storage_(std::make_shared<Storage>()) {}

BlockConfiguration::BlockConfiguration(std::initializer_list<KeyValue> entries)
    : BlockConfiguration(Storage::of(entries)) {}

BlockConfiguration::BlockConfiguration(const std::vector<KeyValue>& entries)
    : BlockConfiguration(Storage::of(entries)) {}

BlockConfiguration::BlockConfiguration(std::shared_ptr<const Storage> storage)
    : storage_(std::move(storage)) {}

const BlockConfiguration::Storage& BlockConfiguration::storage() const {
    static const Storage empty;
    return storage_ == nullptr ? empty : *storage_;
}

template <class T>
T BlockConfiguration::get(const std::string& key, const T* fallback) const {
    ConfigurationObserver* const observer = storage().observer.get();
    const Value* const value = storage().find(key);
    if (observer != nullptr) {
        observer->on_read(
            {key, type_name<T>,
             fallback == nullptr ? std::nullopt : std::optional<Value>(to_value(*fallback)),
             value == nullptr ? std::nullopt : std::optional<Value>(*value)});
    }
    if (value == nullptr && fallback != nullptr)
        return *fallback;
    if (value != nullptr) {
        if (std::optional<T> wanted = as<T>(*value))
            return *std::move(wanted);
    }
    const ConfigurationError error(key, value == nullptr ? type_name<T> : wanted_for<T>(*value),
                                   value == nullptr ? "" : ConfigurationAccess::describe(*value));
    if (observer != nullptr) {
        if (const std::optional<Value> instead = observer->on_error(error))
            return as<T>(*instead).value_or(T{});
    }
    throw error;
}

int BlockConfiguration::getInt(const std::string& key) const {
    return get<int>(key, nullptr);
}

bool BlockConfiguration::getBool(const std::string& key) const {
    return get<bool>(key, nullptr);
}

float BlockConfiguration::getFloat(const std::string& key) const {
    return get<float>(key, nullptr);
}

double BlockConfiguration::getDouble(const std::string& key) const {
    return get<double>(key, nullptr);
}

std::string BlockConfiguration::getString(const std::string& key) const {
    return get<std::string>(key, nullptr);
}

int BlockConfiguration::getInt(const std::string& key, int fallback) const {
    return get(key, &fallback);
}

bool BlockConfiguration::getBool(const std::string& key, bool fallback) const {
    return get(key, &fallback);
}

float BlockConfiguration::getFloat(const std::string& key, float fallback) const {
    return get(key, &fallback);
}

double BlockConfiguration::getDouble(const std::string& key, double fallback) const {
    return get(key, &fallback);
}

std::string BlockConfiguration::getString(const std::string& key,
                                          const std::string& fallback) const {
    return get(key, &fallback);
}

BlockConfiguration operator+(const BlockConfiguration& left, const BlockConfiguration& right) {
    auto storage = std::make_shared<BlockConfiguration::Storage>();
    storage->entries.reserve(left.storage().entries.size() + right.storage().entries.size());
    storage->observer = left.storage().observer;
    storage->set_all(left.storage().entries);
    storage->set_all(right.storage().entries);
    if (right.storage().observer != nullptr)
        storage->observer = right.storage().observer;
    return BlockConfiguration(std::move(storage));
}

ConfigurationObserver::~ConfigurationObserver() = default;

BlockConfiguration ConfigurationAccess::observed(const BlockConfiguration& config,
                                                 std::shared_ptr<ConfigurationObserver> observer) {
    auto storage = BlockConfiguration::Storage::of(config.storage().entries);
    storage->observer = std::move(observer);
    return BlockConfiguration(std::move(storage));
}

const BlockConfiguration::Value* ConfigurationAccess::find(const BlockConfiguration& config,
                                                           const std::string& key) {
    return config.storage().find(key);
}

std::string ConfigurationAccess::describe(const BlockConfiguration::Value& value) {
    return std::visit(Describe{}, value);
}

const std::vector<BlockConfiguration::KeyValue>& ConfigurationAccess::entries(
    const BlockConfiguration& config) {
    return config.storage().entries;
}

}  // namespace Fenwa
