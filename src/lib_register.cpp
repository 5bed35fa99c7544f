#include "src/registration_table.hpp"

int lib_register_cpp(Fenwa::IRegistry* registry) {
    for (const blocks::Registration& row : blocks::registration_table)
        (registry->*row.register_block)(row.type_name);
    return 0;
}
