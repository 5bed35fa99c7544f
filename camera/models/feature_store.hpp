#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "camera/models/feature_document.hpp"

namespace camera {

/// A feature in one language, and its client.
struct AddedFeature {
    Feature feature;
    std::string language;       ///< tag, such as "en-us"
    std::string language_name;  ///< "English"
    std::string client;         ///< unique name of the client that added it last
};

/// The features on the camera's screen, in the order in which they were first added. Knows no bus.
///
/// Id and language together identify a feature. A button exists once for each language of its
/// feature, and has the same request in all of them.
class FeatureStore {
  public:
    /// A client that adds for ever must not take all memory.
    static constexpr std::size_t max_features = 256;

    /// Adds a feature, or replaces the one with its id and language.
    /// @throws CapacityError when full.
    void add(AddedFeature feature);
    /// False where there is no such feature.
    [[nodiscard]] bool remove(std::string_view id, std::string_view language);
    /// Forgets all features, as a restart does.
    void drop_all() noexcept { features_.clear(); }

    [[nodiscard]] const std::vector<AddedFeature>& features() const noexcept { return features_; }
    /// Each id once, with its languages.
    [[nodiscard]] std::vector<std::pair<std::string, std::vector<std::string>>> languages() const;
    /// The first button of that name; null where there is none. Valid until the next change.
    [[nodiscard]] const Button* button(std::string_view name) const;
    /// The names of all buttons.
    [[nodiscard]] std::vector<std::string> buttons() const;

  private:
    [[nodiscard]] std::vector<AddedFeature>::iterator find(std::string_view id,
                                                           std::string_view language);

    std::vector<AddedFeature> features_;
};

}  // namespace camera
