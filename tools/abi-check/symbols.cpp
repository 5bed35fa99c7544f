#include "tools/abi-check/checks.hpp"
#include "tools/abi-check/elf_imports.hpp"
#include "tools/abi-check/libraries.hpp"

namespace abi_check {

void check_symbols(const Options& options, const AddRow& add) {
    const Framework framework(options);
    for (const std::string& symbol : elf_imports(options.plugin)) {
        if (symbol.find("5Fenwa") == std::string::npos && symbol != "logger")
            continue;
        const void* const found = framework.find(symbol);
        if (found == nullptr)
            add({Row::Result::differs, "symbol", readable_name(symbol), "missing: " + symbol});
        else
            add({Row::Result::ok, "symbol", readable_name(symbol), library_of(found)});
    }
}

}  // namespace abi_check
