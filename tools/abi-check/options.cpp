#include "tools/abi-check/options.hpp"

#include <getopt.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "tools/abi-check/exit_code.hpp"

namespace abi_check {
namespace {

constexpr const char* help = R"(Compares a framework with what the plug-in asks of it, on the target

Usage: fenwa-abi-check [OPTIONS]

Options:
  -h, --help           Print this help and exit
  --version            Print the version and exit
  --shared FILE        The library libfenwa-shared.so.0; by soname if not given
  --algo-tools FILE    The library libfenwa-algo-tools.so.0; by soname if not given
  --plugin FILE        The plug-in; libfenwa-temperature.so beside this program if not given
  --differences        Print no rows that are as expected
  --time               Also print how long loading and registering take

Exit codes: 0 all is as expected, 1 something differs, 2 the command line is wrong, 66 a library
cannot be loaded.
)";

std::string plugin_beside_program() {
    std::error_code error;
    const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
    return (program.parent_path() / "libfenwa-temperature.so").string();
}

}  // namespace

CommandLine read_command_line(int count, char** words) {
    enum Option { version = 256, shared, algo_tools, plugin, differences, time };
    static constexpr std::array<option, 8> known{{
        {"help", no_argument, nullptr, 'h'},
        {"version", no_argument, nullptr, version},
        {"shared", required_argument, nullptr, shared},
        {"algo-tools", required_argument, nullptr, algo_tools},
        {"plugin", required_argument, nullptr, plugin},
        {"differences", no_argument, nullptr, differences},
        {"time", no_argument, nullptr, time},
        {nullptr, 0, nullptr, 0},
    }};
    Options options;
    options.plugin = plugin_beside_program();
    for (int found = 0;
         (found = getopt_long(count, words, "h", known.data(), nullptr)) != -1;) {  // NOLINT
        switch (found) {
            case 'h':
                std::fputs(help, stdout);
                return {};
            case version:
                std::puts("fenwa-abi-check " FENWA_VERSION);
                return {};
            case shared:
                options.shared = optarg;
                break;
            case algo_tools:
                options.algo_tools = optarg;
                break;
            case plugin:
                options.plugin = optarg;
                break;
            case differences:
                options.differences_only = true;
                break;
            case time:
                options.time = true;
                break;
            default:  // getopt_long has said what is wrong.
                return {std::nullopt, exit_usage};
        }
    }
    if (optind < count) {
        std::fprintf(stderr, "fenwa-abi-check: unexpected argument '%s'; see --help\n",
                     words[optind]);
        return {std::nullopt, exit_usage};
    }
    return {options, 0};
}

}  // namespace abi_check
