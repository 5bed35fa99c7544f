#pragma once

#include <unistd.h>

#include <utility>

namespace common {

/// A file descriptor that closes itself.
class Descriptor {
  public:
    /// Takes ownership; a negative number stands for none.
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() { close(); }

    [[nodiscard]] int get() const noexcept { return fd_; }
    void close() noexcept {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = -1;
    }

  private:
    int fd_;
};

}  // namespace common
