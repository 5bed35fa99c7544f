#include <algorithm>
#include <cstdio>
#include <exception>

#include "tools/abi-check/checks.hpp"
#include "tools/abi-check/exit_code.hpp"

namespace abi_check {
namespace {

std::vector<Row> run_checks(const Options& options) {
    struct Check {
        const char* name;
        void (*run)(const Options& options, const AddRow& add);
    };
    constexpr Check checks[] = {
        {"symbols", check_symbols},    {"slots", check_slots},   {"sizes", check_sizes},
        {"settings", check_settings},  {"ports", check_ports},   {"debug data", check_debug_data},
        {"registration", check_types}, {"blocks", check_blocks},
    };
    std::vector<Row> rows;
    const auto append = [&rows](std::vector<Row> more) {
        rows.insert(rows.end(), more.begin(), more.end());
    };
    for (const Check& check : checks)
        append(run_in_child(check.name, [&](const AddRow& add) { check.run(options, add); }));
    if (options.time)
        append(measure_time(options));
    return rows;
}

}  // namespace
}  // namespace abi_check

int main(int count, char** words) {
    using namespace abi_check;
    const CommandLine line = read_command_line(count, words);
    if (!line.options)
        return line.exit_code;
    try {
        const std::vector<Row> rows = run_checks(*line.options);
        print_table(rows, line.options->differences_only);
        return std::ranges::find(rows, Row::Result::differs, &Row::result) == rows.end()
                   ? 0
                   : exit_differs;
    } catch (const LoadError& error) {
        std::fprintf(stderr, "fenwa-abi-check: %s\n", error.what());
        return exit_no_input;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "fenwa-abi-check: %s\n", error.what());
        return exit_differs;
    }
}
