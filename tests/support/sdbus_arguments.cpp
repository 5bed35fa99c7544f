#include "tests/support/sdbus_arguments.hpp"

#include <array>
#include <charconv>
#include <cinttypes>
#include <stdexcept>

namespace support {
namespace {

std::string render_double(double value) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value).ptr;
    return {text.data(), end};
}

/// Walks a signature and takes the argument of each type that it meets.
class Renderer {
  public:
    explicit Renderer(std::va_list arguments) { va_copy(arguments_, arguments); }
    Renderer(const Renderer&) = delete;
    Renderer& operator=(const Renderer&) = delete;
    ~Renderer() { va_end(arguments_); }

    /// All complete types up to `end`, moving `types` behind it.
    std::string list(const char*& types, char end) {
        std::string text;
        while (*types != end) {
            if (!text.empty())
                text += ", ";
            text += one(types);
        }
        if (end != '\0')
            ++types;
        return text;
    }

  private:
    std::string one(const char*& types) {
        const char type = *types++;
        switch (type) {
            case 'b':
                return va_arg(arguments_, int) != 0 ? "b true" : "b false";
            case 'y':
            case 'n':
            case 'q':
            case 'i':
                return type + (' ' + std::to_string(va_arg(arguments_, int)));
            case 'u':
                return "u " + std::to_string(va_arg(arguments_, unsigned));
            case 'x':
                return "x " + std::to_string(va_arg(arguments_, std::int64_t));
            case 't':
                return "t " + std::to_string(va_arg(arguments_, std::uint64_t));
            case 'd':
                return "d " + render_double(va_arg(arguments_, double));
            case 's':
            case 'o':
            case 'g':
                return type + (' ' + render_text(va_arg(arguments_, const char*)));
            case 'v': {
                const char* contents = va_arg(arguments_, const char*);
                return "v <" + list(contents, '\0') + ">";
            }
            case '(':
                return "(" + list(types, ')') + ")";
            case '{':
                return list(types, '}');
            case 'a':
                return array(types);
            default:
                throw std::invalid_argument(std::string("no D-Bus type: ") + type);
        }
    }

    std::string array(const char*& types) {
        const char* const element = types;
        skip(types);
        const std::string type(element, types);
        std::string text;
        for (unsigned left = va_arg(arguments_, unsigned); left > 0; --left) {
            const char* again = element;
            text += (text.empty() ? "" : "; ") + one(again);
        }
        return "a" + type + " [" + text + "]";
    }

    /// Moves behind one complete type.
    static void skip(const char*& types) {
        const char type = *types++;
        if (type == 'a') {
            skip(types);
        } else if (type == '(' || type == '{') {
            const char end = type == '(' ? ')' : '}';
            while (*types != end)
                skip(types);
            ++types;
        } else if (type == '\0') {
            throw std::invalid_argument("the signature ends too early");
        }
    }

    std::va_list arguments_;
};

}  // namespace

std::string render_arguments(const char* types, std::va_list arguments) {
    return types == nullptr ? "" : Renderer(arguments).list(types, '\0');
}

std::string render_address(const char* peer, const char* path, const char* interface,
                           const char* member) {
    std::string text;
    for (const char* part : {peer, path, interface, member})
        text += std::string(" ") + (part == nullptr ? "null" : part);
    return text;
}

std::string render_text(const char* text) {
    return text == nullptr ? "null" : '"' + std::string(text) + '"';
}

}  // namespace support
