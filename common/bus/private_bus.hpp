#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "common/bus/bus_folder.hpp"

namespace common {

/// A bus name that the daemon brings up by asking the running camera for one of its services.
struct Activatable {
    std::string bus_name;  ///< "com.tarlo.TemperatureController"
    std::string service;   ///< the camera's short name for it: "temperature"
};

/// The configuration of a private bus.
struct PrivateBusOptions {
    /// Absolute path of the `fenwa-camera` program; needed where `activatable` is not empty.
    std::string camera_program;
    /// Empty: the daemon refuses a call to a name without an owner at once.
    std::vector<Activatable> activatable;
    /// Where the daemon listens; empty: in a temporary folder of its own.
    std::string socket_path;
    /// XML put into the bus configuration as it is: `<limit>` and `<policy>` elements.
    std::string extra_xml;
};

/// A dbus-daemon of our own, for as long as this object lives.
///
/// Its files are in a temporary folder (under $TMPDIR, or /tmp) that is removed at the end; where a
/// process does not get so far, the next one that starts a private bus there removes it. The daemon
/// is in a process group of its own, so that Ctrl-C in a terminal does not reach it, and the kernel
/// ends it with the thread that made this object, should that not get to destroy it.
class PrivateBus {
  public:
    /// Starts the daemon and waits, 10 s at most, until it listens.
    /// @throws Failure (unavailable), with a sentence, when dbus-daemon is not installed or
    ///         does not start, or if a process listens at `socket_path` already.
    explicit PrivateBus(const PrivateBusOptions& options = {});
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    /// "unix:path=…,guid=…"; stays the same after `stop()`.
    [[nodiscard]] const std::string& address() const noexcept { return address_; }
    /// The daemon's process, 0 after `stop()`.
    [[nodiscard]] pid_t pid() const noexcept { return pid_; }

    /// Ends the daemon now (SIGTERM, and SIGKILL after 2 s) and waits until it is gone: every
    /// connection is lost. Does nothing when it was done already.
    void stop() noexcept;

  private:
    void write_files(const PrivateBusOptions& options);
    void start();
    [[nodiscard]] std::string read_address(int pipe);
    [[nodiscard]] std::string last_log_line() const;

    std::unique_ptr<BusFolder> folder_;
    std::filesystem::path socket_;
    std::string address_;
    pid_t pid_ = 0;
};

/// Removes the socket at `path` of a bus whose daemon was killed; does nothing if it is not
/// a socket, or if a process listens there.
void remove_dead_socket(const std::filesystem::path& path) noexcept;

}  // namespace common
