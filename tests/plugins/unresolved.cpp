#include "fenwa/registry.hpp"

/// Defined nowhere: the library does not load.
int symbol_that_nobody_has();

int lib_register_cpp(Fenwa::IRegistry* /*registry*/) {
    return symbol_that_nobody_has();
}
