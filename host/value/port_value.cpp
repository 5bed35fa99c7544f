#include "host/value/port_value.hpp"

#include <chrono>
#include <cmath>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <type_traits>

#include "common/text/number_text.hpp"
#include "framework/shared/configuration_access.hpp"

namespace host {
namespace {

using common::Json;

using Fenwa::BlockConfiguration;
using Fenwa::ConfigurationAccess;

/// One row of the well-known datatypes.
struct KnownType {
    const char* path;
    const char* name;
    PortValue (*first)();
    ValueReader at;
    PortValue (*from_config)(const BlockConfiguration& settings, const std::string& key);
};

template <class T>
PortValue from_config(const BlockConfiguration& settings, const std::string& key) {
    if constexpr (std::is_same_v<T, float>) {
        return settings.getFloat(key);
    } else if constexpr (std::is_same_v<T, bool>) {
        return settings.getBool(key);
    } else if constexpr (std::is_same_v<T, double>) {
        return settings.getDouble(key);
    } else if constexpr (std::is_same_v<T, int>) {
        return settings.getInt(key);
    } else {
        const auto* const value = ConfigurationAccess::find(settings, key);
        throw Fenwa::ConfigurationError(
            key, type_name(Fenwa::datatype_of<T>()),
            value == nullptr ? "" : ConfigurationAccess::describe(*value));
    }
}

template <class T>
constexpr KnownType known(const char* name) {
    return {Fenwa::datatype_path<T>, name, []() -> PortValue { return T{}; },
            [](const void* address) -> PortValue {
                return address == nullptr ? PortValue{} : *static_cast<const T*>(address);
            },
            from_config<T>};
}

constexpr KnownType known_types[] = {
    known<float>("float"),
    known<bool>("bool"),
    known<double>("double"),
    known<int>("int"),
    known<Fenwa::datatype_timersource>("timersource"),
};

const KnownType* find_type(const Fenwa::Datatype& datatype) {
    for (const KnownType& type : known_types) {
        if (datatype.path() == type.path)
            return &type;
    }
    return nullptr;
}

struct ToJson {
    Json operator()(std::monostate) const { return nullptr; }
    Json operator()(const Fenwa::datatype_timersource& tick) const {
        return {{"ticks", tick.ticks}, {"period_ms", tick.period.count()}};
    }
    template <class T>
    Json operator()(const T& value) const {
        if constexpr (std::is_floating_point_v<T>)
            return common::json_number(value);
        else
            return value;
    }
};

struct AppendJson {
    std::string& line;

    void operator()(bool value) const { line += value ? "true" : "false"; }
    void operator()(std::int32_t value) const { line += std::to_string(value); }
    void operator()(float value) const { (*this)(static_cast<double>(value)); }
    void operator()(double value) const {
        const bool is_number = std::isfinite(value);
        line += is_number ? "" : "\"";
        common::append_number(line, value);
        line += is_number ? "" : "\"";
    }
    void operator()(const std::string& value) const { common::append_json(line, value); }
    template <class Other>
    void operator()(const Other& value) const {
        line += common::json_line(ToJson{}(value));
    }
};

/// Reads a value of the argument's type.
struct FromJson {
    const Json& json;

    PortValue operator()(std::monostate) const { return {}; }
    PortValue operator()(const Fenwa::datatype_timersource&) const {
        return Fenwa::datatype_timersource{
            common::number_from_json<std::uint64_t>(json.at("ticks")),
            std::chrono::milliseconds(
                common::number_from_json<std::int64_t>(json.at("period_ms")))};
    }
    template <class T>
    PortValue operator()(const T&) const {
        if constexpr (std::is_same_v<T, bool>)
            return json.get<bool>();
        else
            return common::number_from_json<T>(json);
    }
};

}  // namespace

ValueReader value_reader(const Fenwa::Datatype& datatype) {
    const KnownType* const type = find_type(datatype);
    return type == nullptr ? [](const void*) { return PortValue{}; } : type->at;
}

PortValue value_at(const Fenwa::Datatype& datatype, const void* address) {
    return value_reader(datatype)(address);
}

PortValue default_value(const Fenwa::Datatype& datatype) {
    const KnownType* const type = find_type(datatype);
    return type == nullptr ? PortValue{} : type->first();
}

PortValue value_from_config(const Fenwa::Datatype& datatype, const BlockConfiguration& settings,
                            const std::string& key) {
    const KnownType* const type = find_type(datatype);
    return type == nullptr ? PortValue{} : type->from_config(settings, key);
}

const void* address_of(const PortValue& value) {
    return std::visit([](const auto& held) -> const void* { return &held; }, value);
}

std::vector<std::string> known_datatypes() {
    std::vector<std::string> paths;
    for (const KnownType& type : known_types)
        paths.emplace_back(type.path);
    return paths;
}

std::string type_name(const Fenwa::Datatype& datatype) {
    const KnownType* const type = find_type(datatype);
    return type == nullptr ? datatype.path() : type->name;
}

Fenwa::Datatype datatype_named(const std::string& name) {
    for (const KnownType& type : known_types) {
        if (name == type.name)
            return Fenwa::Datatype(type.path);
    }
    return Fenwa::Datatype(name);
}

PortValue value_from_json(const Fenwa::Datatype& datatype, const Json& json) {
    return std::visit(FromJson{json}, default_value(datatype));
}

void append_json(std::string& line, const PortValue& value) {
    std::visit(AppendJson{line}, value);
}

void append_json(std::string& line, const Fenwa::DebugValue& value) {
    std::visit(AppendJson{line}, value);
}

Json to_json(const PortValue& value) {
    return std::visit(ToJson{}, value);
}

Json to_json(const Fenwa::DebugValue& value) {
    return std::visit(ToJson{}, value);
}

Json to_json(const BlockConfiguration::Value& value) {
    return std::visit(ToJson{}, value);
}

Json to_json(const BlockConfiguration& settings) {
    // Appended without a look-up of each key, which would take quadratic time; keys are unique.
    Json::object_t object;
    for (const auto& entry : ConfigurationAccess::entries(settings))
        object.emplace_back(entry.key(), to_json(entry.value()));
    return object;
}

}  // namespace host
