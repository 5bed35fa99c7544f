#include "fenwa/registry.hpp"

int lib_register_cpp(Fenwa::IRegistry* /*registry*/) {
    throw 42;
}
