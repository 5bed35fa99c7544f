#include "tests/support/pattern.hpp"

#include <regex>

namespace test {
namespace {

Groups groups_of(const std::smatch& match) {
    return {match.begin(), match.end()};
}

}  // namespace

struct Pattern::Regex {
    std::regex value;
};

Pattern::Pattern(const std::string& expression)
    : regex_(std::make_shared<const Regex>(Regex{std::regex(expression)})) {}

std::string Pattern::replace(const std::string& text, const std::string& replacement) const {
    return std::regex_replace(text, regex_->value, replacement);
}

Groups Pattern::match(const std::string& text) const {
    std::smatch match;
    return std::regex_match(text, match, regex_->value) ? groups_of(match) : Groups();
}

Groups Pattern::find(const std::string& text) const {
    std::smatch match;
    return std::regex_search(text, match, regex_->value) ? groups_of(match) : Groups();
}

std::vector<Groups> Pattern::find_all(const std::string& text) const {
    std::vector<Groups> all;
    for (std::sregex_iterator each(text.begin(), text.end(), regex_->value), end; each != end;
         ++each)
        all.push_back(groups_of(*each));
    return all;
}

}  // namespace test
