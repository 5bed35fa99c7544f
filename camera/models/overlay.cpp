#include "camera/models/overlay.hpp"

#include <algorithm>

#include "camera/models/command_error.hpp"

namespace camera {

void OverlayModel::set(std::string text, std::string client, std::uint32_t duration, Time now) {
    auto it = std::ranges::find(texts_, text, &OverlayText::text);
    if (it == texts_.end()) {
        if (texts_.size() >= max_texts)
            throw CapacityError("TooManyTexts", max_texts, "texts");
        it = texts_.insert(it, {std::move(text), {}, 0, {}});
    }
    it->client = std::move(client);
    it->duration = duration;
    it->end.reset();
    if (duration > 0)
        it->end = now + std::chrono::seconds(duration);
}

bool OverlayModel::unset(std::string_view text) {
    return std::erase_if(texts_, [&](const OverlayText& each) { return each.text == text; }) > 0;
}

std::vector<std::string> OverlayModel::expire(Time now) {
    const auto over = [now](const OverlayText& each) { return each.end && *each.end <= now; };
    std::vector<OverlayText> gone;
    std::ranges::copy_if(texts_, std::back_inserter(gone), over);
    std::erase_if(texts_, over);
    std::ranges::stable_sort(gone, {}, &OverlayText::end);
    std::vector<std::string> texts;
    for (OverlayText& each : gone)
        texts.push_back(std::move(each.text));
    return texts;
}

std::optional<OverlayModel::Time> OverlayModel::next_end() const {
    std::optional<Time> next;
    for (const OverlayText& each : texts_) {
        if (each.end && (!next || *each.end < *next))
            next = each.end;
    }
    return next;
}

std::string OverlayModel::shown() const {
    return texts_.empty() ? std::string{} : texts_.front().text;
}

}  // namespace camera
