#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace camera {

/// A stream that writes into a string.
class MemoryStream {
  public:
    MemoryStream() = default;
    MemoryStream(const MemoryStream&) = delete;
    MemoryStream& operator=(const MemoryStream&) = delete;
    ~MemoryStream() {
        std::fclose(file_);
        std::free(buffer_);
    }

    [[nodiscard]] std::FILE* file() const { return file_; }
    /// Everything that was flushed.
    [[nodiscard]] std::string text() const { return {buffer_, size_}; }

  private:
    char* buffer_ = nullptr;
    std::size_t size_ = 0;
    std::FILE* file_ = open_memstream(&buffer_, &size_);
};

}  // namespace camera
