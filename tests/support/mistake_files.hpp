#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace test {

/// A file with mistakes, NAME.toml, and beside it all that a program prints about them,
/// NAME.stderr.
struct MistakeFile {
    std::filesystem::path folder;
    std::string name;  ///< without ".toml"

    [[nodiscard]] std::string toml() const { return name + ".toml"; }
    /// The text of NAME.stderr.
    [[nodiscard]] std::string stderr_text() const {
        std::ifstream file(folder / (name + ".stderr"), std::ios::binary);
        EXPECT_TRUE(file) << folder / name << ".stderr";
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /// The command that runs `words` in the folder, so that messages name the file without a path.
    [[nodiscard]] std::vector<std::string> command(const std::vector<std::string>& words) const {
        std::vector<std::string> all{"env", "--chdir=" + folder.string()};
        all.insert(all.end(), words.begin(), words.end());
        return all;
    }
};

inline void PrintTo(const MistakeFile& file, std::ostream* out) {
    *out << file.toml();
}

/// Every NAME.toml of a folder, in the order of the names.
inline std::vector<MistakeFile> mistake_files(const std::filesystem::path& folder) {
    std::vector<MistakeFile> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() == ".toml")
            files.push_back({folder, entry.path().stem().string()});
    }
    std::ranges::sort(files, {}, &MistakeFile::name);
    return files;
}

/// The name of the test of a file: letters, digits and underscores.
inline std::string mistake_test_name(const testing::TestParamInfo<MistakeFile>& file) {
    std::string name = file.param.name;
    std::ranges::replace(name, '-', '_');
    return name;
}

}  // namespace test
