#include "tests/pages/man_page.hpp"

#include <map>
#include <stdexcept>
#include <utility>

#include "tests/support/process.hpp"

namespace test {
namespace {

std::string utf8(unsigned long code) {
    std::string text;
    if (code < 0x80U) {
        text += static_cast<char>(code);
    } else if (code < 0x800U) {
        text += static_cast<char>(0xC0U | (code >> 6U));
        text += static_cast<char>(0x80U | (code & 0x3FU));
    } else {
        text += static_cast<char>(0xE0U | (code >> 12U));
        text += static_cast<char>(0x80U | ((code >> 6U) & 0x3FU));
        text += static_cast<char>(0x80U | (code & 0x3FU));
    }
    return text;
}

std::string character(const std::string& entity) {
    static const std::map<std::string, std::string> named{
        {"amp", "&"}, {"lt", "<"}, {"gt", ">"}, {"quot", "\""}};
    if (entity.starts_with("#x"))
        return utf8(std::stoul(entity.substr(2), nullptr, 16));
    return named.at(entity);
}

/// With single blanks, none at the ends.
std::string squeezed(const std::string& text) {
    std::string out;
    for (const char c : text) {
        const bool blank = c == ' ' || c == '\n';
        if (!blank)
            out += c;
        else if (!out.empty() && out.back() != ' ')
            out += ' ';
    }
    if (out.ends_with(' '))
        out.pop_back();
    return out;
}

/// Reads the HTML that a man page is rendered to.
class Reader {
  public:
    std::vector<PageSection> read(const std::string& html) {
        for (std::size_t at = 0; at < html.size(); ++at) {
            if (html[at] == '<') {
                const std::size_t end = html.find('>', at);
                begin_or_end(html.substr(at + 1, end - at - 1));
                at = end;
            } else if (html[at] == '&') {
                const std::size_t end = html.find(';', at);
                add(character(html.substr(at + 1, end - at - 1)));
                at = end;
            } else {
                add(std::string(1, html[at]));
            }
        }
        for (PageSection& section : page_) {
            section.title = squeezed(section.title);
            section.text = squeezed(section.text);
            for (Entry& item : section.items)
                item = {squeezed(item.name), squeezed(item.text)};
        }
        return std::move(page_);
    }

  private:
    enum class Place { nowhere, title, text, name, item, display };

    void begin_or_end(const std::string& tag) {
        const std::string name = tag.substr(0, tag.find(' '));
        if (name == "h1" || name == "h2") {
            page_.emplace_back().is_subsection = name == "h2";
            place_ = Place::title;
        } else if (name == "/h1" || name == "/h2") {
            place_ = Place::text;
        } else if (name == "dt") {
            page_.back().items.emplace_back();
            place_ = Place::name;
        } else if (name == "dd") {
            place_ = Place::item;
        } else if (name == "/dt" || name == "/dd") {
            place_ = Place::text;
        } else if (name == "pre") {
            page_.back().displays.emplace_back();
            outer_ = std::exchange(place_, Place::display);
        } else if (name == "/pre") {
            place_ = outer_;
        } else if (name == "p" || name == "br/") {
            add(" ");
        }
    }

    void add(const std::string& text) {
        switch (place_) {
            case Place::nowhere:
                break;
            case Place::title:
                page_.back().title += text;
                break;
            case Place::text:
                page_.back().text += text;
                break;
            case Place::name:
                page_.back().items.back().name += text;
                break;
            case Place::item:
                page_.back().items.back().text += text;
                break;
            case Place::display:
                page_.back().displays.back() += text;
                break;
        }
    }

    std::vector<PageSection> page_;
    Place place_ = Place::nowhere;
    Place outer_ = Place::nowhere;
};

}  // namespace

std::vector<PageSection> read_man_page(const std::string& name) {
    const Ended ended =
        run_program({"mandoc", "-Thtml", "-O", "fragment", std::string(FENWA_PAGES) + '/' + name});
    if (ended.code != 0)
        throw std::runtime_error("mandoc cannot render " + name + ": " + ended.err);
    return Reader().read(ended.out);
}

const PageSection& section_named(const std::vector<PageSection>& page, const std::string& title) {
    for (const PageSection& section : page) {
        if (section.title == title)
            return section;
    }
    throw std::runtime_error("there is no section " + title);
}

std::vector<PageSection> subsections_of(const std::vector<PageSection>& page,
                                        const std::string& title) {
    std::vector<PageSection> found;
    bool inside = false;
    for (const PageSection& section : page) {
        if (!section.is_subsection)
            inside = section.title == title;
        else if (inside)
            found.push_back(section);
    }
    return found;
}

}  // namespace test
