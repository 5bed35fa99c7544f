#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "common/process/descriptor.hpp"

namespace common {

/// The temporary folder of a private bus, under $TMPDIR or /tmp, with the files that it was told
/// of; removed, with them, at the end.
///
/// Its owner holds a lock on it, which the kernel releases with the process, however that ends: so
/// a folder that nobody holds has lost its owner.
class BusFolder {
  public:
    /// @throws Failure (unavailable) when none can be made.
    BusFolder();
    BusFolder(const BusFolder&) = delete;
    BusFolder& operator=(const BusFolder&) = delete;
    ~BusFolder();

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return path_; }

    /// The path of a file or folder, to be made there or not, that is removed at the end. What is
    /// in a folder is named after it.
    std::filesystem::path file(const std::filesystem::path& name);

  private:
    std::filesystem::path path_;
    std::vector<std::filesystem::path> files_;
    Descriptor lock_{-1};
};

/// Removes the folders of private buses, where a new one would be made, whose owners have ended
/// without. What is not ours for sure, or cannot be removed, stays.
void remove_ownerless_folders() noexcept;

}  // namespace common
