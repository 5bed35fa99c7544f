#include "fenwa/sdbus_error.hpp"

namespace Fenwa {

SDBusError::SDBusError(std::string name, std::string message, int negative_errno)
    : name_(std::move(name)),
      message_(std::move(message)),
      what_(name_ + ": " + message_),
      code_(negative_errno) {}

SDBusError::SDBusError(const SDBusError&) = default;
SDBusError& SDBusError::operator=(const SDBusError&) = default;
SDBusError::~SDBusError() = default;

const char* SDBusError::what() const noexcept {
    return what_.c_str();
}

}  // namespace Fenwa
