#include "tests/pages/help.hpp"

#include <sstream>
#include <stdexcept>
#include <utility>

#include "tests/support/process.hpp"

namespace test {
namespace {

void append(std::string& text, const std::string& more) {
    text += (text.empty() ? "" : " ") + more.substr(more.find_first_not_of(' '));
}

Help parse(const std::string& text) {
    Help help;
    std::vector<Entry>* entries = nullptr;
    bool in_footer = false;
    bool new_paragraph = true;
    std::istringstream lines(text);
    std::getline(lines, help.description);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty()) {
            new_paragraph = true;
        } else if (line.starts_with("Usage: ")) {
            help.usage = line.substr(7);
        } else if (line == "Positionals:") {
            entries = &help.arguments;
        } else if (line == "Options:") {
            entries = &help.options;
        } else if (line == "Subcommands:") {
            entries = &help.commands;
        } else if (line.starts_with("   ") && entries != nullptr && !entries->empty()) {
            append(entries->back().text, line);
        } else if (line.starts_with("  ") && entries != nullptr && !in_footer) {
            const std::size_t end = line.find("  ", 2);
            entries->push_back({line.substr(2, end - 2), {}});
            if (end != std::string::npos)
                append(entries->back().text, line.substr(end));
        } else {
            in_footer = true;
            if (std::exchange(new_paragraph, false))
                help.footer.emplace_back();
            append(help.footer.back(), line);
        }
    }
    if (help.usage.empty() || help.options.empty())
        throw std::runtime_error("this is no help:\n" + text);
    return help;
}

}  // namespace

std::string Help::paragraph(const std::string& word) const {
    for (const std::string& each : footer) {
        if (each.starts_with(word + ": "))
            return each.substr(word.size() + 2, each.find_last_of('.') - word.size() - 2);
    }
    return {};
}

Help help_of(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<std::string> words{path_of(program)};
    words.insert(words.end(), arguments.begin(), arguments.end());
    words.emplace_back("--help");
    const Ended ended = run_program(words);
    if (ended.code != 0 || !ended.err.empty())
        throw std::runtime_error("--help fails: " + ended.err);
    return parse(ended.out);
}

std::string path_of(const std::string& program) {
    return std::string(FENWA_BINARIES) + '/' + program;
}

std::vector<std::string> split(const std::string& text, const std::string& separator) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = text.find(separator, begin)) != std::string::npos;
         begin = end + separator.size())
        parts.push_back(text.substr(begin, end - begin));
    parts.push_back(text.substr(begin));
    return parts;
}

}  // namespace test
