#pragma once

#include <functional>
#include <string>
#include <vector>

#include "camera/process/reaper.hpp"

namespace camera {

/// A program that runs beside the camera, on the camera's bus, at most for as long as the camera
/// plays.
/// It finds the bus where programs look for the system bus.
class Child {
  public:
    /// Starts `command`, looked up in PATH, with nothing on its standard input and in a process
    /// group of its own, so that Ctrl-C in a terminal reaches it through the camera only.
    /// `ended` is called once, from the loop, with its exit code (128 + N after signal N).
    /// @throws common::Failure (unreadable) when the program cannot be started.
    Child(Reaper& reaper, const std::vector<std::string>& command, const std::string& bus_address,
          std::function<void(int)> ended);
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    /// Kills its process group where it still runs, and waits until it is gone.
    ~Child();

    [[nodiscard]] bool running() const noexcept { return pid_ != 0; }

  private:
    Reaper& reaper_;
    pid_t pid_ = 0;
};

}  // namespace camera
