#include "common/events/output_writer.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace common {
namespace {

TEST(OutputWriterTest, HasNothingToWaitForInAChildOfItsProcess) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    // Its thread never ends, and so it must not be destroyed.
    auto& writer = *new OutputWriter(ends[1]);
    // More than the pipe takes.
    const std::string line = std::string(100'000, 'x') + '\n';
    writer.append(line);
    writer.before_fork();
    const pid_t child = fork();
    writer.after_fork(child == 0);
    if (child == 0)
        _exit(writer.unwritten() == 0 && writer.drain() ? 0 : 1);
    EXPECT_NE(writer.unwritten(), 0U);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    std::string text(line.size(), ' ');
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t n = read(ends[0], text.data() + done, text.size() - done);
        ASSERT_GT(n, 0);
        done += static_cast<std::size_t>(n);
    }
    EXPECT_EQ(text, line);
}

}  // namespace
}  // namespace common
