#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/bus/bus.hpp"
#include "common/bus/private_bus.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temporary_folder.hpp"

namespace test {

/// A host and the simulated camera on a private bus without activation, and nobody else.
class LoadScene : public ::testing::Test {
  protected:
    /// Starts the bus, with these limits or policies.
    void open_bus(const std::string& bus_xml);
    /// ... and the camera.
    void open(const std::string& bus_xml, const std::vector<std::string>& camera_options = {});
    /// Has the camera handle a command, such as {"fail", "Add", "--drop"}.
    void handle(std::vector<std::string> arguments) const;
    /// Sets one of the camera's values, without a program in between.
    void set(const std::string& name, const std::string& value);

    /// Starts the host with these lines after the line of plug-ins, as the last words of `tool`.
    void start_host(const std::string& graph, std::vector<std::string> tool = {});
    /// Sets one of the camera's values, and waits for an output line of the host with `text`.
    /// @returns how long that took, in milliseconds.
    double publishing_time(const std::string& name, const std::string& value,
                           const std::string& text);
    /// The least that was measured, in up to three rounds that end with one below `limit`: what
    /// others do on the same machine adds to it and never takes away.
    static double least_of_rounds(double limit, const std::function<double()>& measure);
    /// Processor time that the host has taken so far.
    [[nodiscard]] std::chrono::milliseconds processor_time() const;
    /// Memory of the host that is its own, in KiB.
    [[nodiscard]] long memory() const;

    [[nodiscard]] Process& host() { return *host_; }
    [[nodiscard]] const std::string& address() const { return bus_->address(); }
    [[nodiscard]] const TemporaryFolder& folder() const { return folder_; }

  private:
    TemporaryFolder folder_;
    std::unique_ptr<common::PrivateBus> bus_;
    std::unique_ptr<Process> camera_;
    std::unique_ptr<Process> host_;
    common::BusPtr client_;
};

}  // namespace test
