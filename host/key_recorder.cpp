#include "host/key_recorder.hpp"

#include "common/suggestion.hpp"

namespace host {
namespace {

void warn_of_unread_key(const Setting& setting, const std::string& help, const BlockEntry& entry,
                        tool::Diagnostics& diagnostics) {
    diagnostics.warning(setting.where,
                        "no " + entry.type.text + " reads the key '" + setting.key + "'", help);
}

}  // namespace

void KeyRecorder::on_read(const Fenwa::KeyRead& read) {
    reads_.push_back(read);
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

void KeyRecorder::warn_of_unread_keys(const BlockEntry& entry,
                                      tool::Diagnostics& diagnostics) const {
    for (const Setting& setting : entry.settings) {
        // One without a value is reported already.
        if (setting.value && !asked_for(setting.key))
            warn_of_unread_key(setting, tool::did_you_mean(setting.key, asked_), entry,
                               diagnostics);
    }
}

void KeyRecorder::warn_of_near_misses(const BlockEntry& entry,
                                      tool::Diagnostics& diagnostics) const {
    for (const Setting& setting : entry.settings) {
        const std::string help = tool::did_you_mean(setting.key, missing_);
        if (!help.empty() && !asked_for(setting.key))
            warn_of_unread_key(setting, help, entry, diagnostics);
    }
}

}  // namespace host
