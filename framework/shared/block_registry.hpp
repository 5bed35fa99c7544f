#pragma once

#include <string>
#include <utility>
#include <vector>

#include "fenwa/registry.hpp"

namespace Fenwa {

/// Keeps factories under their type names, in the order of registration.
class FENWA_API BlockRegistry final : public IRegistry {
  public:
    BlockRegistry() = default;
    BlockRegistry(const BlockRegistry&) = delete;
    BlockRegistry& operator=(const BlockRegistry&) = delete;
    ~BlockRegistry();

    /// @throws std::invalid_argument when the name is taken.
    void register_factory(const std::string& type_name, const BlockFactory& factory) override;

    /// The factory of a type; null if there is none.
    [[nodiscard]] const BlockFactory* find(const std::string& type_name) const;
    /// All type names, in the order of registration.
    [[nodiscard]] std::vector<std::string> type_names() const;

  private:
    std::vector<std::pair<std::string, BlockFactory>> factories_;
};

}  // namespace Fenwa
