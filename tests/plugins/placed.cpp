#include "fenwa/registry.hpp"

// The type's name says from which folder the plug-in came.
int lib_register_cpp(Fenwa::IRegistry* registry) {
    registry->register_block<Fenwa::Block>("From-" PLACE);
    return 0;
}
