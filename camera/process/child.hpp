#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "camera/process/program_lines.hpp"
#include "camera/process/reaper.hpp"

namespace camera {

/// The name of a program in front of its lines: "fenwa" for "/usr/bin/fenwa".
[[nodiscard]] std::string line_name(const std::string& program);

/// How the programs of a camera start.
struct ProgramPlace {
    Reaper& reaper;
    /// "NAME=VALUE" in place of the inherited ones; without a value, the variable is empty.
    std::vector<std::string> variables{};
    ProgramLines* lines = nullptr;  ///< passes their lines on; null: they write by themselves
};

/// A program that runs beside the camera, on the camera's bus, at most as long as the camera plays.
class Child {
  public:
    /// Starts `command`, looked up in PATH, with nothing on its standard input and in a process
    /// group of its own, so that Ctrl-C in a terminal reaches it through the camera only.
    /// @param name in front of its lines.
    /// @param ended called once, from the loop, with the exit code (128 + N after signal N).
    /// @throws common::Failure, with `exit_code_of_unreadable`, when the program cannot be started.
    Child(const ProgramPlace& place, const std::vector<std::string>& command,
          const std::string& name, std::function<void(int status)> ended);
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
    Children(const ProgramPlace& place,
             std::function<void(const std::string& program, int status)> ended)
        : place_(place), ended_(std::move(ended)) {}

    /// Starts further programs, as the constructor of Child does, until one cannot be started.
    /// @throws common::Failure (unreadable) for that one.
    void start(const std::vector<std::vector<std::string>>& commands);
    /// Whether any program still runs.
    [[nodiscard]] bool running() const;

  private:
    const ProgramPlace& place_;
    std::function<void(const std::string&, int)> ended_;
    std::vector<std::unique_ptr<Child>> children_;
};

}  // namespace camera
