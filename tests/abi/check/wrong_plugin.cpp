// Registers six of the seven types and one of another name, or crashes.
#include <cstdlib>

#include "fenwa/fenwa.hpp"

int lib_register_cpp(Fenwa::IRegistry* registry) {
#ifdef CRASHES
    std::abort();
#endif
    for (const char* const type :
         {"OnScreenControls", "PowerConsumer", "PowerMonitor", "PrioritizedTextOverlaySetter",
          "TemperatureMonitor", "TemperatureReader", "Unexpected"})
        registry->register_block<Fenwa::Block>(type);
    return 0;
}
