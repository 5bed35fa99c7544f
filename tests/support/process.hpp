#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace test {

/// What a program left behind when it ended.
struct Ended {
    int code = -1;    ///< exit code, or -1 when a signal ended it
    int signal = 0;   ///< the signal that ended it, 0 for none
    std::string out;  ///< all of stdout
    std::string err;  ///< all of stderr
};

/// Becomes the program that `arguments[0]` names; exits with 127 when there is none. For a child
/// between fork and exec.
[[noreturn]] void become_program(const std::vector<std::string>& arguments);

/// A child process with its output in the test's hands. The kernel ends it with the test; the
/// destructor ends it with SIGTERM and then SIGKILL, and waits until it is gone.
class Process {
  public:
    /// How long any wait below may take; generous, because test machines are slow and shared.
    static constexpr std::chrono::seconds wait_limit{20};

    /// @param environment set (or, with an empty value, removed) on top of the test's own.
    /// @throws std::runtime_error when the program cannot be started.
    explicit Process(std::vector<std::string> arguments,
                     std::map<std::string, std::string> environment = {});
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process();

    [[nodiscard]] pid_t pid() const noexcept { return pid_; }

    /// Waits for the next line of stdout for which `wanted` holds, skipping others.
    /// @returns nothing when the program ends first, or the time is over.
    std::optional<std::string> wait_for_line(const std::function<bool(const std::string&)>& wanted);
    /// The same for a line that contains `text`, on stdout or on stderr.
    std::optional<std::string> wait_for_text(const std::string& text);
    std::optional<std::string> wait_for_error_text(const std::string& text);

    /// Hands over each whole line that no wait has seen, of stdout and of stderr, and forgets it:
    /// for a program that writes for hours. Waits `limit` at most for something to come.
    /// @returns false once the program has closed both.
    bool take_lines(std::chrono::milliseconds limit,
                    const std::function<void(std::string line, bool is_error)>& take);

    void send_signal(int signal) const;

    /// Waits until the program has ended and gives everything it wrote.
    /// @throws std::runtime_error when it does not end within `limit`.
    Ended wait(std::chrono::seconds limit = wait_limit);
    /// SIGTERM, then `wait`.
    Ended terminate();

    /// All that has been read so far.
    [[nodiscard]] const std::string& out() const noexcept { return streams_[0].text; }
    [[nodiscard]] const std::string& err() const noexcept { return streams_[1].text; }

  private:
    struct Stream {
        int fd = -1;
        std::string text;
        std::size_t looked_at = 0;  ///< start of the first line that no wait has seen yet
    };

    bool read_more(std::chrono::steady_clock::time_point deadline);
    std::optional<std::string> wait_in(Stream& stream,
                                       const std::function<bool(const std::string&)>& wanted);

    pid_t pid_ = 0;
    Stream streams_[2];
};

/// Runs a program to its end. @throws as `Process::wait`.
Ended run_program(std::vector<std::string> arguments,
                  std::map<std::string, std::string> environment = {},
                  std::chrono::seconds limit = Process::wait_limit);

}  // namespace test
