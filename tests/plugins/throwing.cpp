#include <stdexcept>

#include "fenwa/registry.hpp"

int lib_register_cpp(Fenwa::IRegistry* /*registry*/) {
    throw std::runtime_error("no licence");
}
