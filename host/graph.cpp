#include "host/graph.hpp"

namespace host {

Fenwa::BlockConfiguration BlockEntry::configuration() const {
    std::vector<Fenwa::BlockConfiguration::KeyValue> entries;
    for (const Setting& setting : settings)
        entries.emplace_back(setting.key, setting.value);
    return Fenwa::BlockConfiguration(entries);
}

Position BlockEntry::where_is(const std::string& key) const {
    for (const Setting& setting : settings) {
        if (setting.key == key)
            return setting.where;
    }
    return where;
}

}  // namespace host
