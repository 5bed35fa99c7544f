#pragma once

#include <functional>
#include <optional>
#include <string>

#include "common/process/descriptor.hpp"
#include "common/process/exit_code.hpp"

namespace camera {

/// The process that the user has started. The camera plays in a child of it, so that each of the
/// two outlives the other's sudden end and can end what was started; and because it does nothing
/// but wait, it can always be stopped.
///
/// It hands SIGINT, SIGTERM and SIGHUP on to the camera, which stops in order, and stops with it in
/// a terminal (SIGTSTP). A second SIGINT or SIGTERM, or SIGQUIT, ends both at once. When the camera
/// has ended, whatever the reason, everything below it is killed.
class Keeper {
  public:
    /// What the camera knows of its keeper.
    class Link {
      public:
        explicit Link(common::Descriptor socket) : socket_(std::move(socket)) {}
        /// Hands a state such as "READY=1" on to the service manager, as from the keeper, which
        /// is the process that the manager knows.
        void notify(const std::string& state) const noexcept;

      private:
        common::Descriptor socket_;
    };

    /// @param tidy_up called when the camera was ended by a signal and nothing runs below it.
    explicit Keeper(std::function<void()> tidy_up) : tidy_up_(std::move(tidy_up)) {}

    /// Makes the camera's process, which returns from here with its link; SIGTERM comes to it
    /// should this process end. In this process it returns nothing, with `code()` set, when the
    /// camera has ended; when a signal has ended that, or a second one came, the same signal ends
    /// this process, and it does not return. Before any thread is started.
    /// @throws std::system_error when no process can be made.
    [[nodiscard]] std::optional<Link> fork_camera();
    /// The exit code of the camera.
    [[nodiscard]] common::ExitCode code() const noexcept { return code_; }

  private:
    void keep(pid_t camera, int signals, int link);
    void on_signal(pid_t camera, int number);
    bool reap(pid_t camera);
    [[noreturn]] void end_by(int signal);

    std::function<void()> tidy_up_;
    common::ExitCode code_ = common::ExitCode::done;
    bool asked_ = false;
};

}  // namespace camera
