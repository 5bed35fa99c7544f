#include "tools/abi-check/elf_imports.hpp"

#include <elf.h>
#include <link.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "tools/abi-check/child.hpp"

namespace abi_check {
namespace {

/// The bytes of a file, read within their bounds.
class Image {
  public:
    explicit Image(const std::string& path) : path_(path) {
        std::ifstream stream(path, std::ios::binary);
        if (!stream)
            throw LoadError(path + ": " + std::strerror(errno));
        bytes_.assign(std::istreambuf_iterator<char>(stream), {});
    }

    template <class T>
    [[nodiscard]] T at(std::size_t offset) const {
        T value;
        if (offset > bytes_.size() || bytes_.size() - offset < sizeof(T))
            fail("it ends too early");
        std::memcpy(&value, bytes_.data() + offset, sizeof(T));
        return value;
    }

    [[nodiscard]] std::string text_at(std::size_t offset) const {
        if (offset >= bytes_.size())
            fail("it ends too early");
        return bytes_.substr(offset, bytes_.find('\0', offset) - offset);
    }

    [[noreturn]] void fail(const std::string& reason) const {
        throw LoadError(path_ + ": not a shared library for this machine: " + reason);
    }

  private:
    std::string path_;
    std::string bytes_;
};

}  // namespace

std::vector<std::string> elf_imports(const std::string& path) {
    const Image image(path);
    const auto header = image.at<ElfW(Ehdr)>(0);
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0)
        image.fail("it has another format");
    if (header.e_ident[EI_CLASS] != (sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32))
        image.fail("it has another word size");
    const auto section = [&](std::size_t index) {
        return image.at<ElfW(Shdr)>(header.e_shoff + index * sizeof(ElfW(Shdr)));
    };
    for (std::size_t index = 0; index < header.e_shnum; ++index) {
        const ElfW(Shdr) symbols = section(index);
        if (symbols.sh_type != SHT_DYNSYM)
            continue;
        const ElfW(Shdr) names = section(symbols.sh_link);
        std::vector<std::string> found;
        for (std::size_t at = 0; at < symbols.sh_size; at += sizeof(ElfW(Sym))) {
            const auto symbol = image.at<ElfW(Sym)>(symbols.sh_offset + at);
            if (symbol.st_shndx == SHN_UNDEF && symbol.st_name != 0 &&
                symbol.st_info >> 4U == STB_GLOBAL)
                found.push_back(image.text_at(names.sh_offset + symbol.st_name));
        }
        return found;
    }
    image.fail("it has no table of symbols");
}

}  // namespace abi_check
