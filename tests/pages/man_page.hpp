#pragma once

#include <string>
#include <vector>

#include "tests/pages/help.hpp"

namespace test {

/// A section or subsection of a man page. All texts have single blanks and no line breaks.
struct PageSection {
    std::string title;
    bool is_subsection = false;
    std::string text;                   ///< its paragraphs, but for the items of lists
    std::vector<Entry> items;           ///< of tagged lists
    std::vector<std::string> displays;  ///< what is shown literally, with its lines
};

/// Renders a man page and reads it.
/// @throws std::runtime_error where that fails.
std::vector<PageSection> read_man_page(const std::string& name);

/// The section of that title, which must be there.
const PageSection& section_named(const std::vector<PageSection>& page, const std::string& title);

/// The subsections of a section.
std::vector<PageSection> subsections_of(const std::vector<PageSection>& page,
                                        const std::string& title);

}  // namespace test
