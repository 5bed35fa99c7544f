#include "fenwa/tools.hpp"

namespace Fenwa {

SDBusTools::~SDBusTools() = default;

InitTools::InitTools(SDBusTools* tools) : sdbus_tools(tools) {}

}  // namespace Fenwa
