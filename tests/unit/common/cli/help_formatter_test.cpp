#include "common/cli/help_formatter.hpp"

#include <gtest/gtest.h>

#include "common/cli/command_line.hpp"

namespace common {
namespace {

TEST(HelpFormatterTest, ShowsWhatOptionsTakeAndWrapsAtEightyColumns) {
    CLI::App program("Does something", "tool");
    prepare_program(program, "tool 1.2.3", "Exit codes: 0 done; 2 the command line is wrong.");
    CLI::App& run = *program.add_subcommand("run", "Runs it");
    program.add_subcommand("activate", "For nobody")->group("");
    std::string text;
    std::vector<std::string> texts;
    bool flag = false;
    int number = 0;
    run.add_option("FILE", text, "The file")->required();
    run.add_option("NAME", texts, "Names in it");
    run.add_option("--form", text, "How it looks")
        ->check(CLI::IsMember({"text", "json"}))
        ->default_str("text");
    run.add_option("-n,--number", number,
                   "How often it is done before it ends by itself, which it does")
        ->check(CLI::Validator([](std::string&) { return std::string(); }, "TIMES"));
    run.add_option("--without", texts, "What is left out")->type_name("PART");
    run.add_flag("--quiet", flag, "Says nothing\nat all");
    run.add_flag("--control", text, "Lets others in")->option_text("[=NAME]");
    run.add_option("--a-name-that-is-much-too-long", text, "Too long")->type_name("X");

    EXPECT_EQ(program.help(), R"(Does something
Usage: tool [OPTIONS] SUBCOMMAND

Options:
  -h, --help                  Prints this text
  --version                   Prints the version

Subcommands:
  run                         Runs it

Exit codes: 0 done; 2 the command line is wrong.
)");
    EXPECT_EQ(run.help(), R"(Runs it
Usage: run [OPTIONS] FILE [NAME...]

Positionals:
  FILE                        The file
  NAME                        Names in it

Options:
  -h, --help                  Prints this text
  --form text|json            How it looks (default: text)
  -n, --number TIMES          How often it is done before it ends by itself,
                              which it does
  --without PART...           What is left out
  --quiet                     Says nothing
                              at all
  --control[=NAME]            Lets others in
  --a-name-that-is-much-too-long X
                              Too long

Exit codes: 0 done; 2 the command line is wrong.
)");
}

}  // namespace
}  // namespace common
