#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>

namespace test {

/// A datagram socket in the file system, as service managers and the journal listen on.
class DatagramSocket {
  public:
    explicit DatagramSocket(const std::string& path)
        : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    DatagramSocket(const DatagramSocket&) = delete;
    DatagramSocket& operator=(const DatagramSocket&) = delete;
    ~DatagramSocket() { close(fd_); }

    /// The next datagram, or nothing where none comes in that time.
    std::string receive(std::chrono::milliseconds limit = std::chrono::seconds(20)) const {
        pollfd ready{fd_, POLLIN, 0};
        if (poll(&ready, 1, static_cast<int>(limit.count())) <= 0)
            return {};
        char buffer[4096];
        const ssize_t n = recv(fd_, buffer, sizeof buffer, 0);
        return std::string(buffer, n < 0 ? 0 : static_cast<std::size_t>(n));
    }

  private:
    int fd_;
};

}  // namespace test
