#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "camera/process/child.hpp"

namespace camera {

/// The guests of one camera. They are killed, where they still run, with this object.
class Guests {
  public:
    /// `ended` is called from the loop with each guest's program and exit code.
    Guests(Reaper& reaper, std::function<void(const std::string& program, int status)> ended)
        : reaper_(reaper), ended_(std::move(ended)) {}

    /// Starts one more, as the constructor of Guest does.
    /// @throws common::Failure (unreadable) when the program cannot be started.
    void start(const std::vector<std::string>& command, const std::string& bus_address);
    /// Whether any runs still.
    [[nodiscard]] bool running() const;

  private:
    Reaper& reaper_;
    std::function<void(const std::string&, int)> ended_;
    std::vector<std::unique_ptr<Guest>> guests_;
};

}  // namespace camera
