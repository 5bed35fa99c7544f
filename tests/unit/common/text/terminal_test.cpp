#include "common/text/terminal.hpp"

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <cstdlib>

namespace common {
namespace {

/// The terminal's side of a pseudo terminal, where the machine can make one.
class Terminal {
  public:
    Terminal() {
        int terminal = -1;
        if (openpty(&controller_, &terminal, nullptr, nullptr, nullptr) == 0)
            stream_ = fdopen(terminal, "w");
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() {
        if (stream_ != nullptr)
            std::fclose(stream_);
        if (controller_ >= 0)
            close(controller_);
    }

    /// Null where no pseudo terminal can be made, as in a container without /dev/pts.
    std::FILE* stream() { return stream_; }

  private:
    int controller_ = -1;
    std::FILE* stream_ = nullptr;
};

/// A test of a machine that has pseudo terminals; elsewhere there is nothing to test with.
class UseColorOnATerminal : public testing::Test {
  protected:
    void SetUp() override {
        if (terminal.stream() == nullptr)
            GTEST_SKIP() << "no pseudo terminal can be made here";
        unsetenv("NO_COLOR");
        setenv("TERM", "xterm", 1);
    }

    Terminal terminal;
};

TEST(UseColor, WordsAreChoices) {
    EXPECT_EQ(color_choice("always"), ColorChoice::always);
    EXPECT_EQ(color_choice("never"), ColorChoice::never);
    EXPECT_EQ(color_choice("auto"), ColorChoice::automatic);
}

TEST(UseColor, ForcedHoldsWithoutATerminal) {
    unsetenv("NO_COLOR");
    setenv("CLICOLOR_FORCE", "1", 1);
    std::FILE* const file = std::tmpfile();
    EXPECT_TRUE(use_color(ColorChoice::automatic, file));
    EXPECT_FALSE(use_color(ColorChoice::never, file));
    setenv("CLICOLOR_FORCE", "0", 1);
    EXPECT_FALSE(use_color(ColorChoice::automatic, file));
    setenv("CLICOLOR_FORCE", "1", 1);
    setenv("NO_COLOR", "1", 1);
    EXPECT_FALSE(use_color(ColorChoice::automatic, file));
    unsetenv("NO_COLOR");
    unsetenv("CLICOLOR_FORCE");
    std::fclose(file);
}

TEST_F(UseColorOnATerminal, SaysYesUnlessItIsRefused) {
    EXPECT_TRUE(use_color(ColorChoice::automatic, terminal.stream()));
    EXPECT_FALSE(use_color(ColorChoice::never, terminal.stream()));
}

TEST(UseColor, FileHasColoursOnlyWhenTheyAreAskedFor) {
    std::FILE* const file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    EXPECT_FALSE(use_color(ColorChoice::automatic, file));
    EXPECT_TRUE(use_color(ColorChoice::always, file));
    std::fclose(file);
}

TEST_F(UseColorOnATerminal, NoColorCountsWhenItIsNotEmpty) {
    setenv("NO_COLOR", "", 1);
    EXPECT_TRUE(use_color(ColorChoice::automatic, terminal.stream()));
    setenv("NO_COLOR", "0", 1);
    EXPECT_FALSE(use_color(ColorChoice::automatic, terminal.stream()));
    EXPECT_TRUE(use_color(ColorChoice::always, terminal.stream()));
}

TEST_F(UseColorOnATerminal, DumbOrUnknownTerminalHasNone) {
    setenv("TERM", "dumb", 1);
    EXPECT_FALSE(use_color(ColorChoice::automatic, terminal.stream()));
    unsetenv("TERM");
    EXPECT_FALSE(use_color(ColorChoice::automatic, terminal.stream()));
}

TEST(Palette, IsEmptyWhenItIsOff) {
    const Palette off(false);
    EXPECT_EQ(std::string(off.bold) + std::string(off.dim) + std::string(off.red) +
                  std::string(off.green) + std::string(off.yellow) + std::string(off.cyan) +
                  std::string(off.reset),
              "");
    EXPECT_EQ(Palette(true).reset, "\033[0m");
}

}  // namespace
}  // namespace common
