#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "camera/process/child.hpp"

namespace camera {

/// The programs of one camera. They are killed, where they still run, with this object.
class Children {
  public:
    /// `ended` is called from the loop with each program's name and exit code.
    Children(Reaper& reaper, std::function<void(const std::string& program, int status)> ended)
        : reaper_(reaper), ended_(std::move(ended)) {}

    /// Starts one more, as the constructor of Child does.
    /// @throws common::Failure (unreadable) when the program cannot be started.
    void start(const std::vector<std::string>& command, const std::string& bus_address);
    /// Whether any runs still.
    [[nodiscard]] bool running() const;

  private:
    Reaper& reaper_;
    std::function<void(const std::string&, int)> ended_;
    std::vector<std::unique_ptr<Child>> children_;
};

}  // namespace camera
