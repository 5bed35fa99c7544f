#include "host/graph/graph.hpp"

#include <algorithm>
#include <utility>

namespace host {

Fenwa::BlockConfiguration BlockEntry::configuration() const {
    std::vector<Fenwa::BlockConfiguration::KeyValue> entries;
    for (const Setting& setting : settings) {
        if (setting.value)
            entries.emplace_back(setting.key, *setting.value);
    }
    return Fenwa::BlockConfiguration(entries);
}

bool BlockEntry::add(Setting setting) {
    const bool is_new = places_.emplace(setting.key, settings.size()).second;
    if (is_new)
        settings.push_back(std::move(setting));
    return is_new;
}

void BlockEntry::set(const std::string& key, Fenwa::BlockConfiguration::Value value) {
    const auto found = places_.find(key);
    if (found == places_.end())
        add({key, location, std::move(value)});
    else
        settings[found->second].value = std::move(value);
}

const Setting* BlockEntry::find(const std::string& key) const {
    const auto found = places_.find(key);
    return found == places_.end() ? nullptr : &settings[found->second];
}

SourceLocation BlockEntry::where_is(const std::string& key) const {
    const Setting* const setting = find(key);
    return setting == nullptr ? location : setting->location;
}

const BlockEntry* Graph::find(const std::string& block) const {
    const auto found = std::find_if(blocks.begin(), blocks.end(),
                                    [&](const BlockEntry& entry) { return entry.name == block; });
    return found == blocks.end() ? nullptr : &*found;
}

BlockEntry* Graph::find(const std::string& block) {
    return const_cast<BlockEntry*>(std::as_const(*this).find(block));
}

std::string describe(const BlockEntry& entry) {
    return "block '" + entry.name + "' (" + entry.type.text + ")";
}

std::optional<Endpoint> parse_endpoint(const std::string& text, SourceLocation location) {
    const std::size_t dot = text.rfind('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == text.size())
        return std::nullopt;
    return Endpoint{text.substr(0, dot), text.substr(dot + 1), location};
}

}  // namespace host
