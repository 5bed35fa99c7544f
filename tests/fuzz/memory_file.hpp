#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>

#include "common/process/descriptor.hpp"

namespace fuzz {

/// A file in memory, for readers that take a path.
class MemoryFile {
  public:
    /// @throws std::system_error
    MemoryFile(const std::uint8_t* data, std::size_t size)
        : file_(memfd_create("input", MFD_CLOEXEC)) {
        if (file_.get() < 0 || write(file_.get(), data, size) != static_cast<ssize_t>(size))
            throw std::system_error(errno, std::generic_category(), "a file in memory");
    }

    [[nodiscard]] std::string path() const {
        return "/proc/self/fd/" + std::to_string(file_.get());
    }

  private:
    common::Descriptor file_;
};

}  // namespace fuzz
