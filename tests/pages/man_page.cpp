#include "tests/pages/man_page.hpp"

#include <fstream>
#include <stdexcept>

#include "tests/pages/help.hpp"
#include "tests/support/pattern.hpp"

namespace test {

std::vector<PageSection> read_man_page(const std::string& name) {
    std::ifstream file(std::string(FENWA_PAGES) + '/' + name);
    if (!file)
        throw std::runtime_error("there is no page " + name);
    const Pattern title(R"(\.S([hs]) (.*?)(\\&)?)");
    std::vector<PageSection> page;
    bool in_display = false;
    for (std::string line; std::getline(file, line);) {
        if (const Groups match = title.match(line); !match.empty()) {
            page.push_back({match[2], match[1] == "s", {}, {}, {}});
        } else if (line.starts_with(".It Fl ")) {
            // Fl puts a dash before its argument.
            const std::string dashed = Pattern("Fl ").replace(line.substr(4), "-");
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
