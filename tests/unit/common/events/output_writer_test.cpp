#include "common/events/output_writer.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace common {
namespace {

TEST(OutputWriterTest, HasNothingToWaitForInAChildOfItsProcess) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    // Its thread never ends, and so it must not be destroyed.
    auto& writer = *new OutputWriter(ends[1]);
    // More than the pipe takes.
    writer.append(std::string(100'000, 'x') + '\n');
    writer.before_fork();
    const pid_t child = fork();
    writer.after_fork(child == 0);
    if (child == 0)
        _exit(writer.unwritten() == 0 && writer.drain() ? 0 : 1);
    EXPECT_NE(writer.unwritten(), 0U);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    for (char read_piece[4096]; writer.unwritten() != 0;)
        ASSERT_GT(read(ends[0], read_piece, sizeof read_piece), 0);
}

}  // namespace
}  // namespace common
