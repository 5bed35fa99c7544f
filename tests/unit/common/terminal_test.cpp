#include "common/terminal.hpp"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

namespace tool {
namespace {

/// The terminal's side of a pseudo terminal.
class Terminal {
  public:
    Terminal() : controller_(posix_openpt(O_RDWR | O_NOCTTY)) {
        EXPECT_EQ(grantpt(controller_), 0);
        EXPECT_EQ(unlockpt(controller_), 0);
        stream_ = fdopen(open(ptsname(controller_), O_RDWR | O_NOCTTY), "w");
        EXPECT_NE(stream_, nullptr);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal() {
        std::fclose(stream_);
        close(controller_);
    }

    std::FILE* stream() { return stream_; }

  private:
    int controller_;
    std::FILE* stream_ = nullptr;
};

class UseColor : public testing::Test {
  protected:
    void SetUp() override {
        unsetenv("NO_COLOR");
        setenv("TERM", "xterm", 1);
    }
};

TEST_F(UseColor, WordsAreChoices) {
    EXPECT_EQ(color_choice("always"), ColorChoice::always);
    EXPECT_EQ(color_choice("never"), ColorChoice::never);
    EXPECT_EQ(color_choice("auto"), ColorChoice::automatic);
}

TEST_F(UseColor, TerminalHasColoursAndAFileHasNone) {
    Terminal terminal;
    EXPECT_TRUE(use_color(ColorChoice::automatic, terminal.stream()));
    std::FILE* const file = std::tmpfile();
    EXPECT_FALSE(use_color(ColorChoice::automatic, file));
    EXPECT_TRUE(use_color(ColorChoice::always, file));
    std::fclose(file);
    EXPECT_FALSE(use_color(ColorChoice::never, terminal.stream()));
}

TEST_F(UseColor, NoColorCountsWhenItIsNotEmpty) {
    Terminal terminal;
    setenv("NO_COLOR", "", 1);
    EXPECT_TRUE(use_color(ColorChoice::automatic, terminal.stream()));
    setenv("NO_COLOR", "0", 1);
    EXPECT_FALSE(use_color(ColorChoice::automatic, terminal.stream()));
    EXPECT_TRUE(use_color(ColorChoice::always, terminal.stream()));
}

TEST_F(UseColor, DumbOrUnknownTerminalHasNone) {
    Terminal terminal;
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
}  // namespace tool
