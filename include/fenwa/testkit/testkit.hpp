#pragma once

// Everything that the test of a block needs.
#include "fenwa/testkit/block_driver.hpp"    // IWYU pragma: export
#include "fenwa/testkit/body.hpp"            // IWYU pragma: export
#include "fenwa/testkit/call.hpp"            // IWYU pragma: export
#include "fenwa/testkit/fake_service.hpp"    // IWYU pragma: export
#include "fenwa/testkit/private_bus.hpp"     // IWYU pragma: export
#include "fenwa/testkit/recorders.hpp"       // IWYU pragma: export
#include "fenwa/testkit/script.hpp"          // IWYU pragma: export
#include "fenwa/testkit/scripted_tools.hpp"  // IWYU pragma: export
#include "fenwa/testkit/values.hpp"          // IWYU pragma: export
