#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace test {

/// A fenced block of a page.
struct CodeBlock {
    std::size_t line = 0;  ///< where its text begins, from 1
    std::string language;  ///< behind the opening fence; may be empty
    std::string file;      ///< the file that the line before it names; may be empty
    std::string text;
};

/// A page of the guide.
struct MarkdownPage {
    std::vector<CodeBlock> blocks;
    std::vector<std::string> links;  ///< what it leads to within the project, without anchors
};

/// @throws std::runtime_error where the page cannot be read or a fence is not closed.
[[nodiscard]] MarkdownPage read_page(const std::filesystem::path& path);

}  // namespace test
