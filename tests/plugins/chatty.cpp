#include "fenwa/log.hpp"
#include "fenwa/registry.hpp"

/// Logs as it is loaded, when nobody writes event lines yet.
int lib_register_cpp(Fenwa::IRegistry* /*registry*/) {
    logger(4, "%s\n", "x\nfenwa: ready\x1b[2J\x7f\u009b\u202e");
    return 0;
}
