#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "camera/process/reaper.hpp"

namespace camera {

/// A program that runs beside the camera, on the camera's bus, at most as long as the camera plays.
/// The program finds that bus where it looks for the system bus.
class Child {
  public:
    /// Starts `command`, looked up in PATH, with nothing on its standard input and in a process
    /// group of its own, so that Ctrl-C in a terminal reaches it through the camera only.
    /// @param ended called once, from the loop, with the exit code (128 + N after signal N).
    /// @throws common::Failure (unreadable) when the program cannot be started.
    Child(Reaper& reaper, const std::vector<std::string>& command, const std::string& bus_address,
          std::function<void(int status)> ended);
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    /// Kills the process group where the program still runs, and waits for its end.
    ~Child();

    [[nodiscard]] bool running() const noexcept { return pid_ != 0; }

  private:
    Reaper& reaper_;
    pid_t pid_ = 0;  // 0 once the program has ended
};

/// The programs of one camera. They end with this object.
class Children {
  public:
    /// @param ended called from the loop with the name and the exit code of each program.
    Children(Reaper& reaper, std::function<void(const std::string& program, int status)> ended)
        : reaper_(reaper), ended_(std::move(ended)) {}

    /// Starts a further program, as the constructor of Child does.
    /// @throws common::Failure (unreadable) when the program cannot be started.
    void start(const std::vector<std::string>& command, const std::string& bus_address);
    /// Whether any program still runs.
    [[nodiscard]] bool running() const;

  private:
    Reaper& reaper_;
    std::function<void(const std::string&, int)> ended_;
    std::vector<std::unique_ptr<Child>> children_;
};

}  // namespace camera
