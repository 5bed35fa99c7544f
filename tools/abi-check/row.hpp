#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace abi_check {

/// One line of the table.
struct Row {
    enum class Result {
        ok,
        differs,
        unknown,  ///< the library does not tell, because it exports no symbol to compare with
    };

    Result result;
    std::string kind;     ///< "symbol", "slot", "size" ...
    std::string subject;  ///< what is compared, such as "Fenwa::Block::run()"
    std::string detail;   ///< what was found
};

/// One line without a line end, which `parse_row` reads again.
std::string to_line(const Row& row);
/// The row of a line; a line of another form becomes a row that differs.
Row parse_row(std::string_view line);

/// Writes the table to stdout, a blank line and the sum. Rows that are as expected are left out if
/// only differences are wanted.
void print_table(const std::vector<Row>& rows, bool differences_only);

/// A mangled C++ name as C++ has it, without what every reader knows; other names as they are.
std::string readable_name(const std::string& symbol);

}  // namespace abi_check
