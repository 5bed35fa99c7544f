#pragma once

#include <system_error>

namespace Fenwa::testkit {

/// @throws std::system_error when sd-bus has returned a negative result; returns it otherwise.
inline int check(int r) {
    if (r < 0)
        throw std::system_error(-r, std::generic_category());
    return r;
}

}  // namespace Fenwa::testkit
