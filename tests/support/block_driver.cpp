#include "tests/support/block_driver.hpp"

// Here and not in each test, which would be most of its compilation.

namespace support {

Recorders::Recorders() = default;
Recorders::~Recorders() = default;

BlockTest::BlockTest() = default;
BlockTest::~BlockTest() = default;

void BlockTest::TearDown() {
    journal.remark_with({});
}

}  // namespace support
