#pragma once

#include <map>
#include <mutex>
#include <string>

namespace soak {

/// What has happened to the blocks since all of them were last seen at work: the grounds on which
/// a difference may be excused. Each is a text, counted:
///
///     down temperature               the service has left the bus
///     fault overlay.Set              a fault rule was applied to a message
///     late temperature.GetTemperature  ... which was sent late
///     failed Register                a call of the host got an error, or no reply in time
///     overlapping Set                a call was sent before the answer to an earlier one was read
///     log reader: Failed to parse …  the block has logged this
///     disabled video                 the block was built and will not signal
///
/// Any thread.
class Incidents {
  public:
    void add(const std::string& text) {
        const std::lock_guard lock(mutex_);
        ++counts_[text];
    }
    /// How many there are with this text; one that ends with a blank stands for all that begin so.
    [[nodiscard]] int count(const std::string& text) const {
        const std::lock_guard lock(mutex_);
        int sum = 0;
        for (const auto& [other, count] : counts_)
            sum += is_meant(other, text) ? count : 0;
        return sum;
    }
    /// From here on these have not happened.
    void forget(const std::string& text) {
        const std::lock_guard lock(mutex_);
        std::erase_if(counts_, [&](const auto& each) { return is_meant(each.first, text); });
    }
    /// All of them, for a report.
    [[nodiscard]] std::map<std::string, int> all() const {
        const std::lock_guard lock(mutex_);
        return counts_;
    }
    void clear() {
        const std::lock_guard lock(mutex_);
        counts_.clear();
    }

  private:
    static bool is_meant(const std::string& incident, const std::string& text) {
        return text.ends_with(' ') ? incident.starts_with(text) : incident == text;
    }

    mutable std::mutex mutex_;
    std::map<std::string, int> counts_;
};

}  // namespace soak
