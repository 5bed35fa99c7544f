#pragma once

#include <ostream>
#include <string>

#include "fenwa/api.hpp"

namespace Fenwa::testkit {

/// A method call that a block has made. Reading a property is a call of "Get" of the interface
/// "org.freedesktop.DBus.Properties".
struct Call {
    std::string destination;  ///< the bus name that was called
    std::string path;
    std::string interface;
    std::string member;
    std::string arguments{};  ///< each with its type: `s "main", as [s "a"; s "b"], v <i 3>`

    friend bool operator==(const Call&, const Call&) = default;
};

/// "DESTINATION PATH INTERFACE MEMBER(ARGUMENTS)". GoogleTest prints calls so, too.
std::ostream& operator<<(std::ostream& out, const Call& call);

}  // namespace Fenwa::testkit
