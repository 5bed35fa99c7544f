#pragma once

#include <string>
#include <vector>

namespace test {

/// A section or subsection of a man page.
struct PageSection {
    std::string title;
    bool is_subsection = false;
    std::vector<std::string> options;    ///< that it explains: "-h", "--format"
    std::vector<std::string> arguments;  ///< that it explains: "GRAPH"
    std::vector<std::string> displays;   ///< what it shows literally, with line ends
};

/// Reads the source of a man page.
/// @throws std::runtime_error if there is none.
std::vector<PageSection> read_man_page(const std::string& name);

/// The section of that title. @throws std::runtime_error if there is none.
const PageSection& section_named(const std::vector<PageSection>& page, const std::string& title);

}  // namespace test
