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
    std::string client;          ///< unique name of the one that set it last
    std::uint32_t duration = 0;  ///< in seconds; 0: until it is unset
    std::optional<std::chrono::steady_clock::time_point> end;  ///< with a duration
};

/// Texts that compete for one place on the video. Who comes first is served first: the earliest
/// text that is still set is shown, the later ones wait behind it, and their time runs while they
/// wait. Knows no bus, and no time but what it is told.
class OverlayModel {
  public:
    using Time = std::chrono::steady_clock::time_point;

    /// More texts than this are refused: a client that sets for ever must not take all memory.
    static constexpr std::size_t max_texts = 256;

    /// Puts a text behind the others; one that is set already keeps its place and gets this
    /// duration (in seconds; 0: until it is unset) from now on.
    /// @throws CapacityError when full.
    void set(std::string text, std::string client, std::uint32_t duration, Time now);
    /// False where the text is not set.
    [[nodiscard]] bool unset(std::string_view text);
    /// Takes out the texts that have had their time and returns them, in the order of their ends.
    std::vector<std::string> expire(Time now);
    /// Forgets all texts, as a restart does.
    void drop_all() noexcept { texts_.clear(); }

    /// When the next text has had its time; nothing where none has a duration.
    [[nodiscard]] std::optional<Time> next_end() const;
    /// The text on the video, empty for none.
    [[nodiscard]] std::string shown() const;
    /// In the order of arrival.
    [[nodiscard]] const std::vector<OverlayText>& texts() const noexcept { return texts_; }

  private:
    std::vector<OverlayText> texts_;
};

}  // namespace camera
