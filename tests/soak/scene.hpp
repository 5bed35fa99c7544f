#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "common/bus/control_client.hpp"
#include "common/text/json.hpp"
#include "tests/soak/incidents.hpp"
#include "tests/soak/observer.hpp"
#include "tests/soak/settings.hpp"
#include "tests/soak/traffic.hpp"
#include "tests/support/process.hpp"
#include "tests/support/sender.hpp"
#include "tests/support/temporary_folder.hpp"

namespace soak {

/// A service of the camera, as its commands call it.
inline constexpr const char* services[] = {
    "temperature", "power-consumer", "power-status", "controls", "overlay", "video", "init"};

/// A fault rule for a number of messages.
struct Fault {
    std::string member;  ///< "SERVICE.MEMBER"
    enum class Effect { error, malformed, silent, drop, late } effect;
    int times;
    std::chrono::milliseconds delay;  ///< of a late one
};

/// The resources of a process, from the kernel.
struct Footprint {
    long kibibytes = 0;  ///< that it has written to: nobody else's
    long descriptors = 0;
};

/// The simulated camera on a private bus, with activation, and a host that runs the camera graph.
/// Each call waits until it is done. All throw common::Failure or std::runtime_error when a program
/// does not do what it is asked for.
class Scene {
  public:
    /// After this time the blocks take a call for failed.
    static constexpr std::chrono::milliseconds call_timeout{1000};

    explicit Scene(const Settings& settings);

    // The camera.
    void set(const std::string& value, double number) const;
    void start(const char* service) const { call_camera("Start", service); }
    void stop(const char* service) const { call_camera("Stop", service); }
    void restart(const char* service) const { call_camera("Restart", service); }
    void fail(const Fault& fault) const;
    void clear_fault(const char* member) const { call_camera("ClearFault", member); }
    /// Does nothing while there are no buttons.
    void press(const char* button) const;
    [[nodiscard]] common::Json show() const;

    // The host.
    /// Writes the graph file anew and has the host read it.
    void reload(const Settings& settings);
    /// Builds a block anew with the settings that it has.
    void rebuild(const std::string& block) const;
    /// Turns the picture, which VideoReady reports.
    void turn(int degrees) const;
    [[nodiscard]] common::Json describe() const;
    [[nodiscard]] Footprint footprint() const;
    /// Stops it and waits for its end. @returns its exit code, 128 + N after signal N.
    int end_host();

    /// Lets a name that concerns nobody come and go so many times. Waits only until the host has
    /// heard all of the flood before: it meets what comes next.
    void change_owners(int times);

    [[nodiscard]] Incidents& incidents() noexcept { return incidents_; }
    [[nodiscard]] const Observer& observer() const noexcept { return *observer_; }
    [[nodiscard]] std::uint64_t messages() const noexcept { return traffic_->messages(); }
    /// The unique name of the host's connection for its blocks.
    [[nodiscard]] const std::string& host_name() const noexcept { return host_name_; }

  private:
    void call_camera(const char* method, const char* argument) const;
    [[nodiscard]] std::string write_graph(const Settings& settings) const;
    [[nodiscard]] std::string start_camera();
    [[nodiscard]] std::string owner_of(const char* name) const;

    test::TemporaryFolder folder_;
    Incidents incidents_;
    std::optional<test::Process> camera_process_;
    std::optional<common::ControlClient> camera_;
    std::optional<test::Process> host_process_;
    std::optional<common::ControlClient> host_;
    std::string host_name_;
    std::optional<Observer> observer_;
    std::optional<Traffic> traffic_;
    std::optional<test::Sender> other_;  ///< a client that concerns nobody
};

}  // namespace soak
