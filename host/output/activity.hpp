#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace host {

/// While one lives, the thread of the loop is in code that may not return: a block, a plug-in,
/// a wait for the bus. They nest; the innermost counts. Thread of the loop.
class Activity {
  public:
    /// @param kind "block", "plug-in"; a string literal.
    /// @param name of the one that is called, or empty; outlives this object.
    /// @param phase "run", "its constructor"; a string literal, or null for none.
    Activity(const char* kind, const char* name, const char* phase) noexcept;
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;
    ~Activity();

    [[nodiscard]] const char* kind() const noexcept { return kind_; }
    [[nodiscard]] const char* name() const noexcept { return name_; }
    [[nodiscard]] const char* phase() const noexcept { return phase_; }

    /// The one of the calling thread, or null. For the calling thread, its signal handlers
    /// included.
    [[nodiscard]] static const Activity* current() noexcept;

    /// What the loop's thread does, as another thread sees it.
    struct Seen {
        std::uint32_t number = 0;  ///< changes with each begin and end
        /// Empty where the end of an inner one has made it the innermost.
        std::optional<std::chrono::steady_clock::time_point> since{};
        std::string text{};   ///< "block 'reader' in run"; empty where there is none
        std::string block{};  ///< "reader"; empty where it is not a block's
    };
    /// Any thread.
    [[nodiscard]] static Seen seen();

    /// Has the next begin of an activity set an eventfd, once. For one thread.
    /// @param number of the last `seen`, which showed none.
    /// @returns false if one has begun since; the eventfd may be set then, too.
    static bool notify_at_begin(int eventfd, std::uint32_t number) noexcept;

  private:
    const char* kind_;
    const char* name_;
    const char* phase_;
    const Activity* outer_;
};

/// Whether the calling thread is in an operation of a block or plug-in: whatever throws there, the
/// host names it and stops the others in order.
[[nodiscard]] bool in_foreign_code() noexcept;

}  // namespace host
