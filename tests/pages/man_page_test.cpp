// The man pages of the programs have the commands and options of --help, no more and no fewer.
#include <gmock/gmock.h>

#include <algorithm>

#include "tests/pages/help.hpp"
#include "tests/pages/man_page.hpp"

namespace test {
namespace {

using testing::UnorderedElementsAreArray;

class ProgramPage : public testing::TestWithParam<std::string> {
  protected:
    static std::string program() { return GetParam(); }

    [[nodiscard]] const std::vector<PageSection>& page() const { return page_; }

  private:
    std::vector<PageSection> page_ = read_man_page(GetParam() + ".1");
};

TEST_P(ProgramPage, HasASectionForEachCommandOfTheHelp) {
    std::vector<std::string> in_help;
    for (const std::string& command : help_of(program()).commands)
        in_help.push_back(help_of(program(), {command}).usage);
    std::vector<std::string> in_page;
    for (const PageSection& section : page()) {
        if (section.is_subsection && section.title.starts_with(program() + ' '))
            in_page.push_back(section.title);
    }
    EXPECT_GE(in_help.size(), 8U);
    EXPECT_THAT(in_page, UnorderedElementsAreArray(in_help));
}

TEST_P(ProgramPage, ExplainsTheArgumentsAndOptionsOfEachCommand) {
    const Help every_level = help_of(program());
    EXPECT_THAT(section_named(page(), "OPTIONS").options,
                UnorderedElementsAreArray(every_level.options));
    for (const std::string& command : every_level.commands) {
        const Help help = help_of(program(), {command});
        const PageSection& section = section_named(page(), help.usage);
        std::vector<std::string> options = section.options;
        options.insert(options.end(), every_level.options.begin(), every_level.options.end());
        EXPECT_THAT(options, UnorderedElementsAreArray(help.options)) << command;
        EXPECT_THAT(section.arguments, UnorderedElementsAreArray(help.arguments)) << command;
    }
}

INSTANTIATE_TEST_SUITE_P(Of, ProgramPage, testing::Values("fenwa", "fenwa-camera"),
                         [](const auto& program) {
                             return program.param == "fenwa" ? "Fenwa" : "Camera";
                         });

TEST(AbiCheckPage, ExplainsTheOptionsOfTheHelp) {
    const Help help = help_of("fenwa-abi-check");
    EXPECT_GE(help.options.size(), 6U);
    EXPECT_THAT(section_named(read_man_page("fenwa-abi-check.1"), "OPTIONS").options,
                UnorderedElementsAreArray(help.options));
}

}  // namespace
}  // namespace test
