#pragma once

#include <exception>
#include <string>

#include "fenwa/api.hpp"

namespace Fenwa {

/// Failure of a blocking D-Bus call: it could not be sent, timed out or got an error reply.
///
/// Virtual operations, ABI: 0, 1 destructor; 2 `what`.
class FENWA_API SDBusError : public std::exception {
  public:
    /// @param name the D-Bus error name, such as "org.freedesktop.DBus.Error.NoReply".
    /// @param negative_errno what sd-bus returned, such as -ETIMEDOUT.
    SDBusError(std::string name, std::string message, int negative_errno);
    SDBusError(const SDBusError&);
    SDBusError& operator=(const SDBusError&);
    ~SDBusError() override;

    /// "NAME: MESSAGE".
    [[nodiscard]] const char* what() const noexcept override;

    [[nodiscard]] const std::string& name() const noexcept { return name_; }
    [[nodiscard]] const std::string& message() const noexcept { return message_; }
    /// The negative errno.
    [[nodiscard]] int code() const noexcept { return code_; }

  private:
    std::string name_;
    std::string message_;
    std::string what_;
    int code_;
};

}  // namespace Fenwa
