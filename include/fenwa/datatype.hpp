#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

#include "fenwa/api.hpp"

namespace Fenwa {

/// Handle of a value type that travels between ports. Two ports can be connected when their
/// datatypes are equal, that is, built from the same path. A plain value; copies are independent.
class Datatype {
  public:
    /// @param path the type's path, such as "/prefix/well-known.d/double"; not validated.
    explicit Datatype(const std::string& path) : path_(path) {}

    /// The path that the handle was built from.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

    friend bool operator==(const Datatype&, const Datatype&) = default;

  private:
    std::string path_;
};

/// Value that a timer publishes at each tick.
struct datatype_timersource {
    std::uint64_t ticks = 0;             ///< ticks since the timer was started, the first is 1
    std::chrono::milliseconds period{};  ///< time from one tick to the next

    friend bool operator==(const datatype_timersource&, const datatype_timersource&) = default;
};

/// Path of the datatype of the C++ type T. Specialise it for a type of your own:
///
///     template <>
///     inline constexpr const char* Fenwa::datatype_path<Point> = "/acme/geometry.p/point";
template <class T>
inline constexpr const char* datatype_path = nullptr;
template <>
inline constexpr const char* datatype_path<float> = "/prefix/well-known.f/float";
template <>
inline constexpr const char* datatype_path<bool> = "/prefix/well-known.b/bool";
template <>
inline constexpr const char* datatype_path<double> = "/prefix/well-known.d/double";
template <>
inline constexpr const char* datatype_path<int> = "/prefix/well-known.i/int";
template <>
inline constexpr const char* datatype_path<datatype_timersource> =
    "/prefix/well-known.t/datatype_timersource";

/// Datatype of the C++ type T; does not compile for a type without a path.
template <class T>
[[nodiscard]] Datatype datatype_of() {
    static_assert(datatype_path<T> != nullptr, "specialise Fenwa::datatype_path for this type");
    return Datatype(datatype_path<T>);
}

}  // namespace Fenwa
