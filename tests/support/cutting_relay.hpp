#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "common/process/descriptor.hpp"

namespace test {

/// Stands between clients and a bus daemon, and cuts all connections after so many units: the lines
/// of the authentication and the messages, of both directions. Nobody can connect from then on.
/// File descriptors are not passed on.
class CuttingRelay {
  public:
    /// The place in the traffic to cut at; none by default.
    struct Cut {
        std::size_t unit = 0;    ///< from 1; 0 for none
        bool is_inside = false;  ///< half of the unit still passes
    };

    /// @param address of the daemon, "unix:path=…".
    /// @param socket the path at which the relay listens; short enough for a socket.
    /// @param end_delay how much later than its messages the end of a connection passes.
    CuttingRelay(const std::string& address, std::filesystem::path socket, Cut cut,
                 std::chrono::milliseconds end_delay = {});
    CuttingRelay(const CuttingRelay&) = delete;
    CuttingRelay& operator=(const CuttingRelay&) = delete;
    ~CuttingRelay();

    [[nodiscard]] std::string address() const { return "unix:path=" + socket_.string(); }
    [[nodiscard]] bool has_cut() const noexcept { return has_cut_; }
    /// The units that have passed.
    [[nodiscard]] std::size_t units() const noexcept { return units_; }

  private:
    /// One direction of a connection.
    struct Flow {
        common::Descriptor from;
        int to;            ///< owned by the other direction
        std::string text;  ///< not passed on yet
        bool in_messages = false;
        /// When it ended.
        std::optional<std::chrono::steady_clock::time_point> end{};
        bool is_end_passed = false;
    };

    void serve();
    void accept_client();
    void pass_ends();
    /// @returns false at the end of the connection.
    bool pass(Flow& flow);
    [[nodiscard]] static std::size_t unit_in(Flow& flow);

    std::filesystem::path daemon_;
    std::filesystem::path socket_;
    Cut cut_;
    std::chrono::milliseconds end_delay_;
    common::Descriptor listener_;
    std::vector<Flow> flows_;  ///< two for each connection
    std::atomic<std::size_t> units_{0};
    std::atomic<bool> has_cut_{false};
    std::atomic<bool> is_over_{false};
    std::thread thread_;
};

}  // namespace test
