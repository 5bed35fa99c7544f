#pragma once

// Everything that a block compiles against.
#include "fenwa/api.hpp"                  // IWYU pragma: export
#include "fenwa/block.hpp"                // IWYU pragma: export
#include "fenwa/block_configuration.hpp"  // IWYU pragma: export
#include "fenwa/bus_call.hpp"             // IWYU pragma: export
#include "fenwa/callback.hpp"             // IWYU pragma: export
#include "fenwa/datatype.hpp"             // IWYU pragma: export
#include "fenwa/debug_data.hpp"           // IWYU pragma: export
#include "fenwa/log.hpp"                  // IWYU pragma: export
#include "fenwa/port.hpp"                 // IWYU pragma: export
#include "fenwa/ports.hpp"                // IWYU pragma: export
#include "fenwa/registry.hpp"             // IWYU pragma: export
#include "fenwa/sdbus_error.hpp"          // IWYU pragma: export
#include "fenwa/slot.hpp"                 // IWYU pragma: export
#include "fenwa/tools.hpp"                // IWYU pragma: export
