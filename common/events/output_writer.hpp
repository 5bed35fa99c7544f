#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

namespace common {

/// The message that replaces so many lines that were dropped, line end included.
[[nodiscard]] std::string dropped_line(std::size_t lines);

/// Writes to a descriptor on a thread of its own, so that a reader that does not read stops no
/// writer: unread text is kept up to a limit, and then whole lines are dropped and counted. A line
/// with their number replaces them. It lives until the process ends.
class OutputWriter {
  public:
    /// Bytes that are kept; as many again are on their way to the reader.
    static constexpr std::size_t limit = std::size_t{1} << 20U;

    /// Starts the thread. @param fd stays open. @throws std::system_error.
    explicit OutputWriter(int fd);
    OutputWriter(const OutputWriter&) = delete;
    OutputWriter& operator=(const OutputWriter&) = delete;

    /// Keeps the text until it is written. Any thread.
    void append(std::string_view text);
    /// The same, but drops the text if there is no room, also before `drop_when_full`.
    void append_at_once(std::string_view text);

    /// From here on lines are dropped if there is no room; before, `append` waits for it.
    void drop_when_full() noexcept;
    /// Makes the line that replaces dropped lines, line end included; must not append.
    void describe_dropped(std::function<std::string(std::size_t lines)> description);
    /// Called with the errno, on the writer's thread, at the first write that fails; nothing is
    /// written any more after it. Must not append.
    void on_failure(std::function<void(int error)> handler);

    /// Waits until all is written. Once lines are dropped, a reader who does not take anything for
    /// five seconds is waited for no longer. @returns false when that is given up, once.
    bool drain();

    /// Bytes that are still to be written. Any thread, signal handlers included.
    [[nodiscard]] std::size_t unwritten() const noexcept { return unwritten_; }

    /// For fork(2), so that a child finds the writer whole; there it writes on the caller's thread.
    void before_fork() { mutex_.lock(); }
    void after_fork(bool in_child);

  private:
    enum class WhenFull { wait, drop };
    void append(std::string_view text, WhenFull when_full);
    /// Under the lock: replaces the dropped lines, as soon as there is room.
    void tell_dropped();
    [[noreturn]] void serve();
    /// Writes all of `writing_`.
    void write_all();
    /// @returns the errno of the write that failed, or 0.
    int write_piece(std::string_view piece);
    void fail(int error);

    const int fd_;
    std::mutex mutex_;
    std::condition_variable wake_;     ///< there is something to write
    std::condition_variable changed_;  ///< there is room, all is written, or nothing can be
    std::string pending_;
    std::string writing_;  ///< of the writer's thread, but empty when it sleeps
    bool sleeping_ = false;
    bool in_line_ = false;   ///< the last text had no line end
    bool dropping_ = false;  ///< ... and belongs to a line that is dropped
    std::size_t dropped_ = 0;
    bool drops_ = false;
    bool drains_ = false;
    bool gave_up_ = false;
    bool on_callers_thread_ = false;
    std::atomic<int> error_{0};
    std::function<std::string(std::size_t)> description_;
    std::function<void(int)> on_failure_;
    std::atomic<std::size_t> unwritten_{0};
    std::atomic<std::size_t> written_{0};
};

/// The writers of stdout and stderr; null for one that is written directly.
struct StreamWriters {
    OutputWriter* out = nullptr;
    OutputWriter* err = nullptr;
};

/// Has std::cout and std::cerr each written by an OutputWriter if its descriptor leads to a reader
/// who may not read: a pipe, a socket or a terminal. A file or a device takes everything at once,
/// or fails at once. One writer serves both if they lead to the same file, so that their order
/// stays. Once; before other threads write. @throws std::system_error.
[[nodiscard]] StreamWriters buffer_streams();

}  // namespace common
