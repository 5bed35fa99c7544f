#include "common/cli/command_line.hpp"

#include <gtest/gtest.h>

#include <cstdint>

#include "common/cli/options.hpp"

namespace common {
namespace {

/// A program with one option of each kind. What is given ends up in the members.
class CommandLineTest : public ::testing::Test {
  protected:
    Program program() {
        return {
            .version = "tool 1.2.3",
            .help = "Does something",
            .footer = "Exit codes: 0 done; 2 the command line is wrong.",
            .commands = {
                {.name = "run",
                 .help = "Runs it",
                 .arguments =
                     {{.name = "FILE", .help = "The file", .take = into(file), .required = true},
                      {.name = "NAME",
                       .help = "Names in it",
                       .take = into(names),
                       .count = Option::Count::several}},
                 .options = {format_option("the lines", format),
                             bus_option("The bus", bus),
                             {.name = "--times",
                              .value = "N",
                              .help = "How often it is done before it ends by "
                                      "itself, which it does",
                              .take = into(times),
                              .needs = "--quiet"},
                             {.name = "--folder",
                              .value = "DIR",
                              .help = "A folder",
                              .take = into(folders),
                              .count = Option::Count::repeated},
                             {.name = "--without",
                              .value = "PART",
                              .help = "A part to leave out",
                              .take = into(without),
                              .count = Option::Count::several},
                             {.name = "--quiet",
                              .help = "Says nothing\nat all",
                              .take = into(quiet),
                              .excludes = {"--control"}},
                             {.name = "--control",
                              .value = "[=NAME]",
                              .help = "Lets others in",
                              .take = into(control)},
                             {.name = "--a-name-that-is-much-too-long",
                              .value = "SECONDS",
                              .help = "Too long",
                              .take = into(duration)}},
                 .footer = "Of this command.\n\nIn two parts.",
                 .run =
                     [this] {
                         ++runs;
                         return ExitCode::done;
                     }},
                {.name = "activate", .hidden = true, .run = [] { return ExitCode{7}; }}}};
    }

    /// Runs the program. @returns its exit code, with what it has printed in `out` and `err`.
    int run(std::vector<std::string> words) {
        words.insert(words.begin(), "tool");
        std::vector<char*> arguments;
        for (std::string& word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int code = run_command_line(
            "tool", [this](int& /*argc*/, char** /*argv*/) { return program(); },
            static_cast<int>(words.size()), arguments.data());
        out = testing::internal::GetCapturedStdout();
        err = testing::internal::GetCapturedStderr();
        return code;
    }

    int runs = 0;
    std::string out;
    std::string err;
    std::string file;
    std::vector<std::string> names;
    EventFormat format = EventFormat::text;
    std::string bus = "system";
    std::optional<std::int64_t> times;
    std::vector<std::string> folders;
    std::vector<std::string> without;
    bool quiet = false;
    std::optional<std::string> control;
    std::chrono::microseconds duration{};
};

TEST_F(CommandLineTest, HelpShowsWhatOptionsTakeAndWrapsAtEightyColumns) {
    EXPECT_EQ(run({"--help"}), 0);
    EXPECT_EQ(out, R"(Does something
Usage: tool [OPTIONS] SUBCOMMAND

Options:
  -h, --help                  Prints this text
  --version                   Prints the version

Subcommands:
  run                         Runs it

Exit codes: 0 done; 2 the command line is wrong.
)");
    EXPECT_EQ(run({"run", "-h"}), 0);
    EXPECT_EQ(out, R"(Runs it
Usage: tool run [OPTIONS] FILE [NAME...]

Positionals:
  FILE                        The file
  NAME                        Names in it

Options:
  -h, --help                  Prints this text
  --version                   Prints the version
  --format text|json          Form of the lines (default: text)
  --bus ADDRESS               The bus: system, session or a D-Bus address
                              (default: system)
  --times N                   How often it is done before it ends by itself,
                              which it does
  --folder DIR                A folder
  --without PART...           A part to leave out
  --quiet                     Says nothing
                              at all
  --control[=NAME]            Lets others in
  --a-name-that-is-much-too-long SECONDS
                              Too long

Of this command.

In two parts.

Exit codes: 0 done; 2 the command line is wrong.
)");
    EXPECT_EQ(err, "");
    EXPECT_EQ(runs, 0);
}

TEST_F(CommandLineTest, EachLevelHasItsVersion) {
    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"--version"}, {"run", "--version"}, {"activate", "--version"}}) {
        EXPECT_EQ(run(words), 0);
        EXPECT_EQ(out, "tool 1.2.3\n");
    }
}

TEST_F(CommandLineTest, ValuesEndUpInTheirVariables) {
    EXPECT_EQ(run({"run", "--folder", "a", "--folder=b", "--without", "x", "y", "--format", "json",
                   "--quiet", "--times", "010", "--a-name-that-is-much-too-long", "0.25", "--bus",
                   "session", "f", "n", "m"}),
              0);
    EXPECT_EQ(err, "");
    EXPECT_EQ(runs, 1);
    EXPECT_EQ(file, "f");
    EXPECT_EQ(names, (std::vector<std::string>{"n", "m"}));
    EXPECT_EQ(folders, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(without, (std::vector<std::string>{"x", "y"}));
    EXPECT_EQ(format, EventFormat::json);
    EXPECT_EQ(times, 10) << "not the eight of an octal number";
    EXPECT_EQ(duration, std::chrono::milliseconds(250));
    EXPECT_EQ(bus, "session");
    EXPECT_TRUE(quiet);
    EXPECT_FALSE(control);
}

TEST_F(CommandLineTest, AnOptionWhoseValueMayBeLeftOutLeavesTheNextArgumentAlone) {
    EXPECT_EQ(run({"run", "--control", "f"}), 0);
    EXPECT_EQ(control, "");
    EXPECT_EQ(file, "f");
    EXPECT_EQ(run({"run", "--control=true", "f"}), 0);
    EXPECT_EQ(control, "true");
}

TEST_F(CommandLineTest, EachMistakeIsOneLine) {
    struct Mistake {
        std::vector<std::string> words;
        std::string sentence;
    };
    for (const auto& [words, sentence] : {
             Mistake{{}, "A subcommand is required"},
             Mistake{{"rum"}, "unknown command 'rum'; did you mean 'run'?"},
             Mistake{{"activat"}, "unknown command 'activat' (see tool --help)"},
             Mistake{{"run"}, "FILE is required"},
             Mistake{{"run", "f", "--tims", "1"},
                     "unknown option '--tims'; did you mean '--times'?"},
             Mistake{{"run", "f", "--zzz"}, "unknown option '--zzz' (see tool run --help)"},
             Mistake{{"run", "f", "--folder"}, "--folder: 1 required DIR missing"},
             Mistake{{"run", "f", "--folder="}, "--folder: the value after '=' is missing"},
             Mistake{{"run", "f", "--format", "xml"}, "--format: xml not in {text,json}"},
             Mistake{{"run", "f", "--times", "1"}, "--times requires --quiet"},
             Mistake{{"run", "f", "--control", "--quiet"}, "--quiet excludes --control"},
             Mistake{{"run", "f", "--quiet", "--times", "0x10"},
                     "--times: '0x10' is not a whole number of at most 64 bits, in decimal digits"},
             Mistake{{"run", "f", "--a-name-that-is-much-too-long", "nan"},
                     "--a-name-that-is-much-too-long: 'nan' is not a number of seconds from "
                     "0.000001 to 1000000000"},
         }) {
        EXPECT_EQ(run(words), 2) << sentence;
        EXPECT_EQ(err, "tool: " + sentence + '\n');
        EXPECT_EQ(out, "");
    }
    EXPECT_EQ(runs, 0);
}

TEST_F(CommandLineTest, ACommandGivesTheExitCode) {
    EXPECT_EQ(run({"activate"}), 7);
}

TEST(Into, ADoubleIsDecimal) {
    double value = 0;
    for (const auto& [text, number] :
         {std::pair{"0.5", 0.5}, std::pair{"1", 1.0}, std::pair{"1e-3", 0.001}}) {
        EXPECT_EQ(into(value)(text), "");
        EXPECT_EQ(value, number);
    }
    for (const std::string wrong : {"0x1", " 1", "half", ""})
        EXPECT_EQ(into(value)(wrong), "'" + wrong + "' is not a number in decimal digits");
}

}  // namespace
}  // namespace common
