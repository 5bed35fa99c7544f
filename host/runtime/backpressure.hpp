#pragma once

#include <cstddef>
#include <cstdint>

namespace host {

/// Holds blocks back while the bus owes them many answers: a bus daemon remembers a limited number
/// of unanswered calls for each connection (128 by default) and refuses a further one, after which
/// some blocks are silent for good. Where no answer comes for a while it lets them go on, so that a
/// service that never answers stops nobody. Times are microseconds of any clock that never goes
/// back.
class Backpressure {
  public:
    /// The most unanswered calls with which blocks still run; a run may make several.
    static constexpr std::size_t mark = 96;
    /// The longest wait for the next answer.
    static constexpr std::uint64_t patience = 250'000;

    /// @returns whether blocks are to wait now.
    bool holds(std::size_t unanswered, std::uint64_t now) noexcept;

    /// An answer has come.
    void answered(std::uint64_t now) noexcept { last_ = now; }

    /// When `holds` is to be asked again though no answer has come, after it has said true.
    [[nodiscard]] std::uint64_t due() const noexcept { return last_ + patience; }

  private:
    enum class State {
        open,     ///< below the mark
        holding,  ///< answers are waited for
        given_up  ///< none came; nobody waits until the number is below the mark again
    };

    State state_ = State::open;
    std::uint64_t last_ = 0;  ///< when the last answer came, or the hold began
};

}  // namespace host
