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

    /// An activity as another thread sees it.
    struct Seen {
        std::uint32_t number;  ///< changes with each begin and end
        std::chrono::steady_clock::time_point since;
        std::string text;   ///< "block 'reader' in run"
        std::string block;  ///< "reader"; empty where it is not a block's
    };
    /// The one of the loop's thread, if there is one. Any thread.
    [[nodiscard]] static std::optional<Seen> seen();

  private:
    const char* kind_;
    const char* name_;
    const char* phase_;
    const Activity* outer_;
};

}  // namespace host
