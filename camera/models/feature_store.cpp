#include "camera/models/feature_store.hpp"

#include <algorithm>

#include "camera/models/command_error.hpp"

namespace camera {

std::vector<AddedFeature>::iterator FeatureStore::find(std::string_view id,
                                                       std::string_view language) {
    return std::ranges::find_if(features_, [&](const AddedFeature& each) {
        return each.feature.name == id && each.language == language;
    });
}

void FeatureStore::add(AddedFeature feature) {
    const auto it = find(feature.feature.name, feature.language);
    if (it != features_.end()) {
        *it = std::move(feature);
        return;
    }
    if (features_.size() >= max_features)
        throw CapacityError("TooManyFeatures", max_features, "features");
    features_.push_back(std::move(feature));
}

bool FeatureStore::remove(std::string_view id, std::string_view language) {
    const auto it = find(id, language);
    if (it == features_.end())
        return false;
    features_.erase(it);
    return true;
}

std::vector<std::pair<std::string, std::vector<std::string>>> FeatureStore::languages() const {
    std::vector<std::pair<std::string, std::vector<std::string>>> list;
    for (const AddedFeature& each : features_) {
        auto it = std::ranges::find(
            list, each.feature.name, [](const auto& pair) -> const auto& { return pair.first; });
        if (it == list.end())
            it = list.insert(it, {each.feature.name, {}});
        it->second.push_back(each.language);
    }
    return list;
}

const Button* FeatureStore::button(std::string_view name) const {
    for (const AddedFeature& each : features_) {
        const auto it = std::ranges::find(each.feature.buttons, name, &Button::name);
        if (it != each.feature.buttons.end())
            return &*it;
    }
    return nullptr;
}

std::vector<std::string> FeatureStore::buttons() const {
    std::vector<std::string> names;
    for (const AddedFeature& each : features_) {
        for (const Button& button : each.feature.buttons)
            names.push_back(button.name);
    }
    return names;
}

}  // namespace camera
