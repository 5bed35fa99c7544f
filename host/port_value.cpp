#include "host/port_value.hpp"

#include <type_traits>

#include "framework/shared/configuration_access.hpp"

namespace host {
namespace {

using tool::Json;

/// One row of the well-known datatypes.
struct KnownType {
    const char* path;
    const char* name;
    PortValue (*read)(const void* address);
};

template <class T>
constexpr KnownType known(const char* name) {
    return {Fenwa::datatype_path<T>, name,
            [](const void* address) -> PortValue { return *static_cast<const T*>(address); }};
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
            return tool::json_number(value);
        else
            return value;
    }
};

}  // namespace

PortValue read_value(const Fenwa::Datatype& datatype, const void* address) {
    const KnownType* const type = find_type(datatype);
    return type == nullptr || address == nullptr ? PortValue{} : type->read(address);
}

std::string type_name(const Fenwa::Datatype& datatype) {
    const KnownType* const type = find_type(datatype);
    return type == nullptr ? datatype.path() : type->name;
}

Json to_json(const PortValue& value) {
    return std::visit(ToJson{}, value);
}

Json to_json(const Fenwa::DebugValue& value) {
    return std::visit(ToJson{}, value);
}

Json to_json(const Fenwa::BlockConfiguration::Value& value) {
    return std::visit(ToJson{}, value);
}

Json to_json(const Fenwa::BlockConfiguration& settings) {
    Json object = Json::object();
    for (const auto& entry : Fenwa::ConfigurationAccess::entries(settings))
        object[entry.key()] = to_json(entry.value());
    return object;
}

}  // namespace host
