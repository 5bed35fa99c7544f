#pragma once

#include <csignal>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/process/descriptor.hpp"
#include "common/process/exit_code.hpp"

namespace camera {

/// The signals that end a camera. SIGHUP is not among them where it is ignored, as under `nohup`.
[[nodiscard]] std::vector<int> ending_signals();

[[nodiscard]] sigset_t set_of(const std::vector<int>& signals) noexcept;

/// The process that the user has started. The camera plays in a child process of it, so that each
/// of the two survives the other's sudden end and can end all programs. The keeper can always be
/// stopped, because it only waits.
///
/// It passes SIGINT, SIGTERM and SIGHUP to the camera, which then ends in order, and stops with it
/// in a terminal (SIGTSTP). A second SIGINT or SIGTERM, or SIGQUIT, ends both at once. When the
/// camera has ended, the keeper kills every process below it.
class Keeper {
  public:
    /// The camera's connection to its keeper.
    class Link {
      public:
        explicit Link(common::Descriptor socket) : socket_(std::move(socket)) {}
        /// Passes a state such as "READY=1" to the service manager, as from the keeper, which is
        /// the process that the manager knows.
        void notify(const std::string& state) const noexcept;

      private:
        common::Descriptor socket_;
    };

    /// @param tidy_up called when a signal has ended the camera and nothing runs below it.
    explicit Keeper(std::function<void()> tidy_up) : tidy_up_(std::move(tidy_up)) {}

    /// Forks the camera's process, before any thread is started.
    /// @returns in the camera, its link; SIGTERM reaches it if the keeper ends. In the keeper,
    ///          nothing, once the camera has ended and `code()` is set. It does not return in the
    ///          keeper when a signal has ended the camera, or a second one has arrived: then the
    ///          same signal ends the keeper.
    /// @throws std::system_error when no process can be made.
    [[nodiscard]] std::optional<Link> fork_camera();
    /// The exit code of the camera.
    [[nodiscard]] common::ExitCode code() const noexcept { return code_; }

  private:
    enum class State {
        playing,
        ending,  ///< the camera has got SIGINT or SIGTERM
    };

    void keep(pid_t camera, int signals, int link);
    void on_signal(pid_t camera, int number);
    /// Passes the first signal to the camera; a further one ends both.
    void end_camera(pid_t camera, int number);
    /// Waits for the processes that have ended; true once the camera is among them.
    bool reap(pid_t camera);
    [[noreturn]] void end_by(int signal);

    std::function<void()> tidy_up_;
    common::ExitCode code_ = common::ExitCode::done;
    State state_ = State::playing;
};

}  // namespace camera
