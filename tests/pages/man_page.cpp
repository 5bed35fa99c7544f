#include "tests/pages/man_page.hpp"

#include <fstream>
#include <regex>
#include <stdexcept>

#include "tests/pages/help.hpp"

namespace test {

std::vector<PageSection> read_man_page(const std::string& name) {
    std::ifstream file(std::string(FENWA_PAGES) + '/' + name);
    if (!file)
        throw std::runtime_error("there is no page " + name);
    const std::regex title(R"(\.S([hs]) (.*?)(\\&)?)");
    std::vector<PageSection> page;
    bool in_display = false;
    for (std::string line; std::getline(file, line);) {
        std::smatch match;
        if (std::regex_match(line, match, title)) {
            page.push_back({match[2], match[1] == "s", {}, {}, {}});
        } else if (line.starts_with(".It Fl ")) {
            // Fl puts a dash before its argument.
            const std::string dashed = std::regex_replace(line.substr(4), std::regex("Fl "), "-");
            for (const std::string& option : option_names(dashed))
                page.back().options.push_back(option);
        } else if (line.starts_with(".It Ar ")) {
            page.back().arguments.push_back(line.substr(7));
        } else if (line.starts_with(".Bd -literal")) {
            page.back().displays.emplace_back();
            in_display = true;
        } else if (line == ".Ed") {
            in_display = false;
        } else if (in_display) {
            page.back().displays.back() += line + '\n';
        }
    }
    return page;
}

const PageSection& section_named(const std::vector<PageSection>& page, const std::string& title) {
    for (const PageSection& section : page) {
        if (section.title == title)
            return section;
    }
    throw std::runtime_error("there is no section " + title);
}

}  // namespace test
