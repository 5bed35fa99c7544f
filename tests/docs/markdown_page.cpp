#include "tests/docs/markdown_page.hpp"

#include <fstream>
#include <regex>
#include <stdexcept>

namespace test {
namespace {

constexpr std::string_view fence = "```";

void add_links(const std::string& line, std::vector<std::string>& links) {
    static const std::regex link(R"(\]\(([^)#:]+)(#[^)]*)?\))");
    for (std::sregex_iterator it(line.begin(), line.end(), link), end; it != end; ++it)
        links.push_back((*it)[1]);
}

/// The file in "`average.cpp`: the mean …", empty where the line begins otherwise.
std::string named_file(const std::string& line) {
    static const std::regex name("^`([A-Za-z0-9_-]+\\.[a-z]+)`.*");
    std::smatch match;
    return std::regex_match(line, match, name) ? match[1].str() : std::string{};
}

}  // namespace

MarkdownPage read_page(const std::filesystem::path& path) {
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("cannot read " + path.string());
    MarkdownPage page;
    CodeBlock* open = nullptr;
    std::string last_text;
    std::size_t number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.starts_with(fence) && open == nullptr) {
            page.blocks.push_back(
                {number + 1, line.substr(fence.size()), named_file(last_text), {}});
            open = &page.blocks.back();
        } else if (line.starts_with(fence)) {
            open = nullptr;
            last_text.clear();
        } else if (open != nullptr) {
            open->text += line + '\n';
        } else {
            add_links(line, page.links);
            if (!line.empty())
                last_text = line;
        }
    }
    if (open != nullptr)
        throw std::runtime_error(path.string() + ": a fence is not closed");
    return page;
}

}  // namespace test
