#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace camera {

/// A text that a client has put on the video.
struct OverlayText {
    std::string text;
    std::string client;          ///< unique name of the client that set it last
    std::uint32_t duration = 0;  ///< in seconds; 0: until it is unset
    std::optional<std::chrono::steady_clock::time_point> end;  ///< with a duration
};

/// Texts that compete for one place on the video. The earliest text that is still set is shown; the
/// later ones wait, and their time runs while they wait. Knows no bus and no clock.
class OverlayModel {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// A client that sets for ever must not take all memory.
    static constexpr std::size_t max_texts = 256;

    /// Adds a text at the end; one that is set already keeps its place and gets the new duration.
    /// @param duration in seconds from `now`; 0: until it is unset.
    /// @throws CapacityError when full.
    void set(std::string text, std::string client, std::uint32_t duration, Time now);
    /// False where the text is not set.
    [[nodiscard]] bool unset(std::string_view text);
    /// Removes the texts whose time is over and returns them, in the order of their ends.
    std::vector<std::string> expire(Time now);
    /// Forgets all texts, as a restart does.
    void drop_all() noexcept { texts_.clear(); }

    /// The next end of a text's time; nothing where no text has a duration.
    [[nodiscard]] std::optional<Time> next_end() const;
    /// The text on the video, empty for none.
    [[nodiscard]] std::string shown() const;
    /// In the order of arrival.
    [[nodiscard]] const std::vector<OverlayText>& texts() const noexcept { return texts_; }

  private:
    std::vector<OverlayText> texts_;
};

}  // namespace camera
