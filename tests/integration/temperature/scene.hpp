#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "camera/private_bus.hpp"
#include "common/json_text.hpp"
#include "tests/support/bus_monitor.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temporary_folder.hpp"

namespace test {

/// The service whose name the readers follow.
inline constexpr const char* controller_name = "com.tarlo.TemperatureController";

/// A graph with one TemperatureReader in the host, the simulated camera's temperature controller
/// and a monitor, all on a private bus.
class TemperatureScene : public ::testing::Test {
  protected:
    /// What differs from test to test, before `open`.
    struct Setting {
        std::string bus_xml{};    ///< further limits and policy of the bus
        bool activation = false;  ///< a call brings the controller up
        bool camera_there = true;
        bool controller_there = true;  ///< when the reader starts
        std::string reader_keys = "sensor_name = \"main\"\ndelta_chg = 0.5\n";
        std::vector<std::string> host_options{};
    };

    /// Starts the bus, the camera, the monitor.
    void open(Setting setting);
    void open() { open(Setting{}); }
    /// Starts the host with the graph and waits until it asks for the controller's owner.
    void start_host();
    /// The same for a host that will not come to ask.
    void start_host_without_owner_query();

    /// Gives the camera an order, such as {"set", "temperature.main", "40"}.
    void camera(std::vector<std::string> order) const;

    /// Waits until an output of this value was published, as it stands in the event line.
    void wait_for_output(const std::string& value);
    void wait_for_log(const std::string& message);
    /// Waits for the camera's next event line with this text.
    void wait_for_camera(const std::string& text);

    /// Stops the host with SIGTERM and records to its end.
    void close();
    /// The same without the traffic.
    void end_host();

    /// What crossed the bus, from the host's first message to its last, after `close`.
    [[nodiscard]] std::vector<std::string> traffic() const;
    /// The host's event lines, without their times, after `close`.
    [[nodiscard]] std::vector<std::string> events() const;
    /// Only those of one kind, such as "output".
    [[nodiscard]] std::vector<std::string> events(const std::string& kind) const;

    [[nodiscard]] const std::string& address() const { return bus_->address(); }
    [[nodiscard]] const Ended& ended() const { return ended_; }

  private:
    TemporaryFolder folder_;
    Setting setting_;
    std::unique_ptr<camera::PrivateBus> bus_;
    std::unique_ptr<Process> camera_;
    std::unique_ptr<BusMonitor> monitor_;
    std::unique_ptr<Process> host_;
    std::string host_name_;
    Ended ended_;
};

/// Event lines as the host writes them, times taken out.
std::string output_event(const std::string& value);
std::string debug_event(const std::string& value);
std::string log_event(int level, const std::string& message);

}  // namespace test
