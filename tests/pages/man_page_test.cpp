// The man pages of the programs say what --help says, no more commands and options and no fewer.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "tests/pages/help.hpp"
#include "tests/pages/man_page.hpp"
#include "tests/support/process.hpp"

namespace test {
namespace {

/// In the order of their names: a page may have another one than the help.
std::vector<Entry> sorted(std::vector<Entry> entries) {
    std::sort(entries.begin(), entries.end(),
              [](const Entry& a, const Entry& b) { return a.name < b.name; });
    return entries;
}

/// "NAME: TEXT" for each entry, a line each.
std::string listed(const std::vector<Entry>& entries) {
    std::string all;
    for (const Entry& entry : entries)
        all += entry.name + ": " + entry.text + '\n';
    return all;
}

bool stands_on_every_level(const Entry& option) {
    return option.name == "-h, --help" || option.name == "--version";
}

/// What a page has to say first of all that a help names; more may follow.
std::vector<Entry> as_sentences(std::vector<Entry> entries) {
    for (Entry& entry : entries)
        entry.text += '.';
    return sorted(std::move(entries));
}

/// The items of a page with as much of their texts as stands in the help beside them.
std::vector<Entry> beginnings(std::vector<Entry> items, const std::vector<Entry>& in_help) {
    for (Entry& item : items) {
        for (const Entry& entry : in_help) {
            if (entry.name == item.name)
                item.text = item.text.substr(0, entry.text.size());
        }
    }
    return sorted(std::move(items));
}

class ProgramPage : public testing::TestWithParam<std::string> {
  protected:
    static std::string program() { return GetParam(); }

    /// The word behind the program's name in "fenwa run [OPTIONS] GRAPH".
    static std::string command_in(const std::string& usage) { return split(usage, " ").at(1); }

    [[nodiscard]] const std::vector<PageSection>& page() const { return page_; }

    /// A command's subsection; a test that asks for one that is not there fails.
    [[nodiscard]] PageSection section_of(const std::string& command) const {
        for (const PageSection& section : subsections_of(page_, "COMMANDS")) {
            if (command_in(section.title) == command)
                return section;
        }
        ADD_FAILURE() << "'" << command << "' has no section in " << program() << "(1)";
        return {};
    }

  private:
    std::vector<PageSection> page_ = read_man_page(GetParam() + ".1");
};

TEST_P(ProgramPage, HasASectionForEachCommandOfTheHelp) {
    std::multiset<std::string> in_help;
    for (const Entry& command : help_of(program()).commands)
        in_help.insert(help_of(program(), {command.name}).usage);
    std::multiset<std::string> in_page;
    for (const PageSection& section : subsections_of(page(), "COMMANDS"))
        in_page.insert(section.title);
    EXPECT_EQ(in_page, in_help);
}

TEST_P(ProgramPage, SaysOfEachCommandWhatTheHelpSays) {
    for (const Entry& command : help_of(program()).commands) {
        EXPECT_EQ(help_of(program(), {command.name}).description, command.text);
        const std::string wanted = command.text + '.';
        EXPECT_EQ(section_of(command.name).text.substr(0, wanted.size()), wanted) << command.name;
    }
}

TEST_P(ProgramPage, ExplainsArgumentsAndOptionsOfEachCommandInTheWordsOfTheHelp) {
    for (const Entry& command : help_of(program()).commands) {
        const Help help = help_of(program(), {command.name});
        std::vector<Entry> entries = help.arguments;
        for (const Entry& option : help.options) {
            if (!stands_on_every_level(option))
                entries.push_back(option);
        }
        entries = as_sentences(entries);
        EXPECT_EQ(listed(beginnings(section_of(command.name).items, entries)), listed(entries))
            << command.name;
    }
}

TEST_P(ProgramPage, ExplainsOnceTheOptionsThatAreUnderstoodOnEveryLevel) {
    const std::vector<Entry> options = help_of(program()).options;
    const std::vector<Entry> wanted = as_sentences(options);
    EXPECT_EQ(listed(beginnings(section_named(page(), "OPTIONS").items, wanted)), listed(wanted));
    for (const Entry& command : help_of(program()).commands) {
        std::vector<Entry> found;
        for (const Entry& option : help_of(program(), {command.name}).options) {
            if (stands_on_every_level(option))
                found.push_back(option);
        }
        EXPECT_EQ(listed(found), listed(options)) << command.name;
    }
}

TEST_P(ProgramPage, NamesTheExitCodesInTheWordsOfTheHelp) {
    std::vector<Entry> codes;
    for (const std::string& part : split(help_of(program()).paragraph("Exit codes"), "; ")) {
        // What has no number is told of all the codes.
        if (std::isdigit(static_cast<unsigned char>(part.front())) != 0)
            codes.push_back({part.substr(0, part.find(' ')), part.substr(part.find(' ') + 1)});
    }
    EXPECT_GE(codes.size(), 6U);
    codes = as_sentences(codes);
    EXPECT_EQ(listed(beginnings(section_named(page(), "EXIT STATUS").items, codes)), listed(codes));
    for (const Entry& command : help_of(program()).commands)
        EXPECT_EQ(help_of(program(), {command.name}).footer.back(),
                  help_of(program()).footer.back());
}

INSTANTIATE_TEST_SUITE_P(Of, ProgramPage, testing::Values("fenwa", "fenwa-camera"),
                         [](const auto& program) {
                             return program.param == "fenwa" ? "Fenwa" : "Camera";
                         });

TEST(CameraPage, NamesTheServicesOfTheHelp) {
    const std::vector<PageSection> page = read_man_page("fenwa-camera.1");
    std::string in_page;
    for (const Entry& item : section_named(page, "SERVICES").items)
        in_page += (in_page.empty() ? "" : ", ") + item.name;
    const std::string in_help = help_of("fenwa-camera", {"run"}).paragraph("Services");
    EXPECT_EQ(in_help.substr(0, in_help.find('.')), in_page);
}

}  // namespace
}  // namespace test
