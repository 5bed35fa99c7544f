#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "common/process/descriptor.hpp"

namespace camera {

/// A file that is written part by part, so that it is whole whenever the writing ends.
class RecordingFile {
  public:
    /// Creates the file, or empties it.
    /// @throws common::Failure (unavailable) when it cannot be written.
    explicit RecordingFile(std::string path);

    /// Adds a part: all of it, or nothing.
    /// @returns false when a file with it would be longer than a scenario may be.
    /// @throws common::Failure (unavailable) when the file cannot be written.
    [[nodiscard]] bool add(std::string_view part);
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

  private:
    std::string path_;
    common::Descriptor file_;
    std::size_t size_ = 0;
};

}  // namespace camera
