#include "host/check/key_recorder.hpp"

#include <algorithm>

namespace host {

std::string describe(const UnreadKey& unread, const BlockEntry& entry) {
    return entry.type.text + " does not read the key '" + unread.key + "'";
}

void KeyRecorder::on_read(const Fenwa::KeyRead& read) {
    if (on_read_)
        on_read_(read);
    if (is_asked_.insert(read.key).second)
        asked_.push_back(read.key);
}

bool KeyRecorder::on_error(const Fenwa::ConfigurationError& error) {
    invented_ = true;
    if (error.missing())
        missing_.push_back(error.key());
    if (on_mistake_)
        on_mistake_(error);
    return true;
}

bool KeyRecorder::has_unread_keys(const BlockEntry& entry) const {
    return std::any_of(entry.settings.begin(), entry.settings.end(),
                       [this](const Setting& setting) { return is_unread(setting); });
}

std::vector<UnreadKey> KeyRecorder::unread_keys(const BlockEntry& entry,
                                                common::Suggester& suggester) const {
    std::vector<UnreadKey> unread;
    for (const Setting& setting : entry.settings) {
        if (is_unread(setting))
            unread.push_back(
                {setting.key, setting.location, suggester.did_you_mean(setting.key, asked_)});
    }
    return unread;
}

std::vector<UnreadKey> KeyRecorder::near_misses(const BlockEntry& entry,
                                                common::Suggester& suggester) const {
    std::vector<UnreadKey> misses;
    for (const Setting& setting : entry.settings) {
        std::string help = suggester.did_you_mean(setting.key, missing_);
        if (!help.empty() && !asked_for(setting.key))
            misses.push_back({setting.key, setting.location, std::move(help)});
    }
    return misses;
}

}  // namespace host
