#include "common/toml/nesting.hpp"

#include <vector>

namespace common {
namespace {

class NestingScan {
  public:
    NestingScan(std::string_view text, std::size_t limit) : text_(text), limit_(limit) {}

    SourceLocation run() {
        if (text_.starts_with("\xEF\xBB\xBF"))
            text_.remove_prefix(3);  // a byte-order mark has no column
        while (at_ < text_.size() && found_.line == 0)
            step();
        return found_;
    }

  private:
    /// One open bracket: whether keys stand in it, and the parts of the key being read.
    struct Level {
        bool inline_table;
        std::size_t key_parts;
    };

    void step() {
        const char c = text_[at_];
        if (c == '"' || c == '\'') {
            skip_string(c);
            return;
        }
        if (c == '#') {
            skip_comment();
            return;
        }
        if (c == '\n')
            end_line();
        else if (line_is_header_ && brackets_.empty())
            header(c);
        else
            value_or_key(c);
        advance();
    }

    void header(char c) {
        if (c == '.')
            note(++header_parts_);
        else if (c == ']')
            line_is_header_ = false;
    }

    void value_or_key(char c) {
        const bool in_key = reading_key_;
        switch (c) {
            case '[':
                if (at_line_start_ && brackets_.empty()) {
                    line_is_header_ = true;
                    header_parts_ = 1;
                    note(header_parts_);
                    break;
                }
                open({false, 0});
                break;
            case '{':
                open({true, 0});
                reading_key_ = true;
                break;
            case ']':
            case '}':
                if (!brackets_.empty()) {
                    depth_ -= 1 + brackets_.back().key_parts;
                    brackets_.pop_back();
                }
                reading_key_ = false;
                break;
            case ',':
                end_entry();
                reading_key_ = !brackets_.empty() && brackets_.back().inline_table;
                break;
            case '=':
                reading_key_ = false;
                break;
            case '.':
                if (in_key)
                    add_key_part();
                break;
            default:
                break;
        }
        if (c != ' ' && c != '\t' && c != '\r')
            at_line_start_ = false;
    }

    void open(Level level) {
        brackets_.push_back(level);
        note(header_parts_ + ++depth_);
    }

    void add_key_part() {
        (brackets_.empty() ? line_key_parts_ : brackets_.back().key_parts)++;
        note(header_parts_ + ++depth_);
    }

    void end_entry() {
        std::size_t& parts = brackets_.empty() ? line_key_parts_ : brackets_.back().key_parts;
        depth_ -= parts;
        parts = 0;
    }

    void end_line() {
        line_is_header_ = false;
        if (!brackets_.empty())
            return;
        end_entry();
        reading_key_ = true;
        at_line_start_ = true;
    }

    void skip_comment() {
        while (at_ < text_.size() && text_[at_] != '\n')
            advance();
    }

    void skip_string(char quote) {
        at_line_start_ = false;
        const std::string_view rest = text_.substr(at_);
        const bool multi_line = rest.size() >= 3 && rest[1] == quote && rest[2] == quote;
        const std::size_t width = multi_line ? 3 : 1;
        for (std::size_t i = 0; i < width; ++i)
            advance();
        while (at_ < text_.size()) {
            if (!multi_line && text_[at_] == '\n')
                return;  // unterminated: the parser will say so
            if (text_[at_] == '\\' && quote == '"') {
                advance();
                if (at_ < text_.size())
                    advance();
                continue;
            }
            if (text_[at_] == quote &&
                (!multi_line ||
                 text_.substr(at_, 3) == std::string_view(quote == '"' ? "\"\"\"" : "'''"))) {
                for (std::size_t i = 0; i < width; ++i)
                    advance();
                // The text may end with one or two quotes of its own: of five the last three count.
                for (int i = 0; multi_line && i < 2 && at_ < text_.size() && text_[at_] == quote;
                     ++i)
                    advance();
                return;
            }
            advance();
        }
    }

    void advance() {
        const char c = text_[at_++];
        if (c == '\n') {
            ++here_.line;
            here_.column = 1;
        } else if ((static_cast<unsigned char>(c) & 0xC0U) != 0x80U) {
            ++here_.column;
        }
    }

    void note(std::size_t depth) {
        if (depth > limit_ && found_.line == 0)
            found_ = here_;
    }

    std::string_view text_;
    std::size_t limit_;
    std::size_t at_ = 0;
    SourceLocation here_{1, 1};
    SourceLocation found_;
    std::vector<Level> brackets_;
    std::size_t depth_ = 0;           ///< open brackets and key parts below the header
    std::size_t header_parts_ = 0;    ///< tables that the last header opened
    std::size_t line_key_parts_ = 0;  ///< dots of the key of this line
    bool line_is_header_ = false;
    bool at_line_start_ = true;
    bool reading_key_ = true;
};

}  // namespace

SourceLocation find_deep_nesting(std::string_view text, std::size_t limit) {
    return NestingScan(text, limit).run();
}

}  // namespace common
