#pragma once

#include <ostream>
#include <string>
#include <variant>

#include "fenwa/block_configuration.hpp"
#include "fenwa/datatype.hpp"

namespace Fenwa::testkit {

/// Stands for a value of a datatype of the author's own; `BlockDriver::value` reads it.
struct OtherValue {
    std::string datatype;  ///< its path

    friend bool operator==(const OtherValue&, const OtherValue&) = default;
};

/// A value that a block has published.
struct Output {
    std::string port;
    std::variant<bool, int, float, double, datatype_timersource, OtherValue> value;

    friend bool operator==(const Output&, const Output&) = default;
};

/// A setting that `setup` has returned.
struct Setting {
    std::string key;
    BlockConfiguration::Value value;

    friend bool operator==(const Setting&, const Setting&) = default;
};

// GoogleTest prints them so, too.
/// "PORT = VALUE"; of a timer source the ticks and the period, of any other datatype its path.
std::ostream& operator<<(std::ostream& out, const Output& output);
/// "KEY = VALUE", with texts in quotes.
std::ostream& operator<<(std::ostream& out, const Setting& setting);

}  // namespace Fenwa::testkit
