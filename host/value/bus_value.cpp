#include "host/value/bus_value.hpp"

#include <string>
#include <type_traits>

#include "common/bus/bus.hpp"

namespace host {
namespace {

using common::check;

struct BusType {
    const char* operator()(std::monostate) const { return nullptr; }
    const char* operator()(bool) const { return "b"; }
    const char* operator()(int) const { return "i"; }
    const char* operator()(float) const { return "d"; }
    const char* operator()(double) const { return "d"; }
    const char* operator()(const Fenwa::datatype_timersource&) const { return "(tt)"; }
};

struct Append {
    sd_bus_message* message;

    int operator()(std::monostate) const { return -EINVAL; }
    int operator()(bool value) const {
        return sd_bus_message_append(message, "v", "b", static_cast<int>(value));
    }
    int operator()(int value) const { return sd_bus_message_append(message, "v", "i", value); }
    int operator()(double value) const { return sd_bus_message_append(message, "v", "d", value); }
    int operator()(const Fenwa::datatype_timersource& tick) const {
        return sd_bus_message_append(message, "v", "(tt)", tick.ticks,
                                     static_cast<std::uint64_t>(tick.period.count()));
    }
};

/// Reads a variant of the type `held` as a value of the argument's type.
struct Read {
    sd_bus_message* message;
    std::string held;

    std::optional<PortValue> operator()(std::monostate) const { return std::nullopt; }
    std::optional<PortValue> operator()(bool) const {
        int value = 0;
        return take("b", &value) ? std::optional<PortValue>(value != 0) : std::nullopt;
    }
    std::optional<PortValue> operator()(const Fenwa::datatype_timersource&) const {
        std::uint64_t ticks = 0;
        std::uint64_t period = 0;
        if (!take("(tt)", &ticks, &period))
            return std::nullopt;
        return Fenwa::datatype_timersource{ticks, std::chrono::milliseconds(period)};
    }
    template <class Number>
    std::optional<PortValue> operator()(Number) const {
        int integer = 0;
        if (take("i", &integer))
            return static_cast<Number>(integer);
        double number = 0.0;
        if (std::is_floating_point_v<Number> && take("d", &number))
            return static_cast<Number>(number);
        return std::nullopt;
    }

  private:
    template <class... Places>
    bool take(const char* type, Places... places) const {
        if (held != type)
            return false;
        check(sd_bus_message_read(message, "v", type, places...), "cannot read a variant");
        return true;
    }
};

}  // namespace

const char* bus_type(const PortValue& value) {
    return std::visit(BusType{}, value);
}

int append_variant(sd_bus_message& message, const PortValue& value) {
    return std::visit(Append{&message}, value);
}

std::optional<PortValue> value_from_variant(sd_bus_message& message,
                                            const Fenwa::Datatype& datatype) {
    return std::visit(Read{&message, common::variant_type(message)}, default_value(datatype));
}

PortValue value_from_variant(sd_bus_message& message) {
    const std::string held = common::variant_type(message);
    for (const PortValue& like : {PortValue(false), PortValue(0), PortValue(0.0),
                                  PortValue(Fenwa::datatype_timersource{})}) {
        if (held == bus_type(like))
            return *std::visit(Read{&message, held}, like);
    }
    return {};
}

}  // namespace host
