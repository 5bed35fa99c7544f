#include "tools/abi-check/libraries.hpp"

#include <dlfcn.h>
#include <link.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "tools/abi-check/child.hpp"

namespace abi_check {
namespace {

void* load(const std::string& name) {
    void* const handle = dlopen(name.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (handle == nullptr)
        throw LoadError(dlerror());
    return handle;
}

/// The part of a library's dynamic section that names what its relocations refer to.
struct Relocations {
    const char* entries = nullptr;
    std::size_t bytes = 0;
    const ElfW(Sym) * symbols = nullptr;
    const char* names = nullptr;
};

// Of the two forms of a relocation an architecture has one; their first two members are the same.
#if defined(__LP64__)
using Relocation = ElfW(Rela);
constexpr ElfW(Sxword) relocations_tag = DT_RELA;
constexpr ElfW(Sxword) relocations_size_tag = DT_RELASZ;
constexpr unsigned symbol_shift = 32;
#else
using Relocation = ElfW(Rel);
constexpr ElfW(Sword) relocations_tag = DT_REL;
constexpr ElfW(Sword) relocations_size_tag = DT_RELSZ;
constexpr unsigned symbol_shift = 8;
#endif

Relocations relocations_of(const link_map& library) {
    Relocations found;
    for (const ElfW(Dyn)* entry = library.l_ld; entry->d_tag != DT_NULL; ++entry) {
        switch (entry->d_tag) {
            case relocations_tag:
                found.entries = reinterpret_cast<const char*>(entry->d_un.d_ptr);
                break;
            case relocations_size_tag:
                found.bytes = entry->d_un.d_val;
                break;
            case DT_SYMTAB:
                found.symbols = reinterpret_cast<const ElfW(Sym)*>(entry->d_un.d_ptr);
                break;
            case DT_STRTAB:
                found.names = reinterpret_cast<const char*>(entry->d_un.d_ptr);
                break;
            default:
                break;
        }
    }
    return found;
}

}  // namespace

Framework::Framework(const Options& options)
    : shared_(load(options.shared)), algo_tools_(load(options.algo_tools)) {}

void* Framework::find(const std::string& symbol) const {
    void* const found = dlsym(shared_, symbol.c_str());
    return found != nullptr ? found : dlsym(algo_tools_, symbol.c_str());
}

void* Framework::required(const std::string& symbol) const {
    void* const found = find(symbol);
    if (found == nullptr)
        throw std::runtime_error("no library has " + symbol);
    return found;
}

void* load_plugin(const std::string& path) {
    // A name without a slash would be looked for in the folders of libraries.
    const std::string file = std::filesystem::absolute(path).string();
    void* const handle = dlopen(file.c_str(), RTLD_NOW);
    if (handle == nullptr)
        throw std::runtime_error(dlerror());
    return handle;
}

std::string library_of(const void* address) {
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_fname == nullptr)
        return {};
    return std::filesystem::path(info.dli_fname).filename().string();
}

std::string symbol_put_at(const void* place) {
    Dl_info info{};
    link_map* library = nullptr;
    if (dladdr1(place, &info, reinterpret_cast<void**>(&library), RTLD_DL_LINKMAP) == 0)
        return {};
    const Relocations relocations = relocations_of(*library);
    const auto wanted = reinterpret_cast<std::uintptr_t>(place) - library->l_addr;
    for (std::size_t at = 0; at < relocations.bytes; at += sizeof(Relocation)) {
        Relocation relocation;
        std::memcpy(&relocation, relocations.entries + at, sizeof(relocation));
        if (relocation.r_offset == wanted)
            return relocations.names +
                   relocations.symbols[relocation.r_info >> symbol_shift].st_name;
    }
    return {};
}

std::string symbol_at(const void* address) {
    Dl_info info{};
    if (dladdr(address, &info) == 0 || info.dli_sname == nullptr || info.dli_saddr != address)
        return {};
    return info.dli_sname;
}

std::optional<std::size_t> exported_size_at(const void* address) {
    Dl_info info{};
    const ElfW(Sym)* symbol = nullptr;
    if (dladdr1(address, &info, reinterpret_cast<void**>(const_cast<ElfW(Sym)**>(&symbol)),
                RTLD_DL_SYMENT) == 0 ||
        symbol == nullptr || info.dli_saddr != address)
        return std::nullopt;
    return symbol->st_size;
}

}  // namespace abi_check
