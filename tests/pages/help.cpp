#include "tests/pages/help.hpp"

#include <sstream>
#include <stdexcept>

#include "tests/support/process.hpp"

namespace test {

Help help_of(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<std::string> words{path_of(program)};
    words.insert(words.end(), arguments.begin(), arguments.end());
    words.emplace_back("--help");
    const Ended ended = run_program(words);
    if (ended.code != 0)
        throw std::runtime_error("--help fails: " + ended.err);
    Help help;
    std::string section;
    std::istringstream lines(ended.out);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("Usage: "))
            help.usage = line.substr(7);
        else if (!line.starts_with(' ') && line.ends_with(':'))
            section = line;
        if (!line.starts_with("  ") || line[2] == ' ')
            continue;
        const std::string name = line.substr(2, line.find("  ", 2) - 2);
        if (section == "Options:") {
            for (const std::string& option : option_names(name))
                help.options.push_back(option);
        } else {
            (section == "Subcommands:" ? help.commands : help.arguments).push_back(name);
        }
    }
    return help;
}

std::string path_of(const std::string& program) {
    return std::string(FENWA_BINARIES) + '/' + program;
}

std::vector<std::string> option_names(const std::string& text) {
    std::vector<std::string> names;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (word.starts_with('-'))
            names.push_back(word.substr(0, word.find_first_of(",[")));
    }
    return names;
}

}  // namespace test
