// Completion in a real bash offers what --help names, and files where they are wanted.
#include <gmock/gmock.h>

#include <filesystem>
#include <sstream>

#include "tests/pages/help.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temporary_folder.hpp"

namespace test {
namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;
using Words = std::vector<std::string>;

const std::string fenwa = path_of("fenwa");
const std::string fenwa_camera = path_of("fenwa-camera");

class Completion : public testing::Test {
  protected:
    Completion() {
        for (const char* name : {"one.toml", "note.txt", "old.so", "now.svg"})
            folder_.write(name, "");
        std::filesystem::create_directory(folder_.path() / "graphs.d");
    }

    /// What bash offers for a command line in the words of readline, which takes them apart at '='.
    /// The last word is to be completed.
    [[nodiscard]] Words offers(const Words& words) const {
        Words command{"bash",
                      "--norc",
                      "--noprofile",
                      "-c",
                      R"(cd "$1" || exit
. /usr/share/bash-completion/bash_completion
. "$2"
shift 2
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMP_LINE="$*"
COMP_LINE=${COMP_LINE// = /=} COMP_LINE=${COMP_LINE/% =/=} COMP_POINT=${#COMP_LINE}
_fenwa "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
[[ ${#COMPREPLY[@]} -eq 0 ]] || printf '%s\n' "${COMPREPLY[@]}")",
                      "bash",
                      folder_.path().string(),
                      FENWA_COMPLETION};
        command.insert(command.end(), words.begin(), words.end());
        std::istringstream lines(run_program(command).out);
        Words offered;
        for (std::string line; std::getline(lines, line);)
            offered.push_back(line);
        return offered;
    }

  private:
    TemporaryFolder folder_;
};

TEST_F(Completion, OffersTheCommandsOfTheHelp) {
    for (const std::string program : {"fenwa", "fenwa-camera"}) {
        Words wanted = help_of(program).commands;
        EXPECT_GE(wanted.size(), 8U);
        wanted.insert(wanted.end(), {"--help", "--version"});
        EXPECT_THAT(offers({path_of(program), ""}), UnorderedElementsAreArray(wanted));
    }
}

TEST_F(Completion, OffersTheOptionsOfEachCommand) {
    for (const std::string program : {"fenwa", "fenwa-camera"}) {
        for (const std::string& command : help_of(program).commands) {
            Words wanted = help_of(program, {command}).options;
            // Of an option with two names, the long one.
            EXPECT_GE(std::erase_if(wanted, [](const auto& name) { return name.size() == 2; }), 1U);
            EXPECT_THAT(offers({path_of(program), command, "-"}), UnorderedElementsAreArray(wanted))
                << command;
        }
    }
}

TEST_F(Completion, OffersTheValuesOfAnOption) {
    EXPECT_THAT(offers({fenwa, "run", "--format", ""}), UnorderedElementsAre("text", "json"));
    EXPECT_THAT(offers({fenwa, "run", "--format", "=", "j"}), UnorderedElementsAre("json"));
    EXPECT_THAT(offers({fenwa_camera, "show", "--bus", ""}),
                UnorderedElementsAre("system", "session"));
    EXPECT_THAT(offers({fenwa_camera, "run", "--without", "te"}),
                UnorderedElementsAre("temperature"));
    EXPECT_THAT(offers({fenwa_camera, "start", "in"}), UnorderedElementsAre("init"));
    EXPECT_THAT(offers({fenwa, "run", "--for", ""}), IsEmpty());
}

TEST_F(Completion, OffersFilesOfTheKind) {
    EXPECT_THAT(offers({fenwa, "run", ""}), UnorderedElementsAre("graphs.d", "one.toml"));
    EXPECT_THAT(offers({fenwa, "run", "--control", "o"}), UnorderedElementsAre("one.toml"));
    EXPECT_THAT(offers({fenwa, "inspect", "o"}), UnorderedElementsAre("old.so"));
    EXPECT_THAT(offers({fenwa, "graph", "--output", "n"}), UnorderedElementsAre("now.svg"));
    EXPECT_THAT(offers({fenwa, "run", "--plugin-dir", ""}), UnorderedElementsAre("graphs.d"));
    EXPECT_THAT(offers({fenwa_camera, "run", "--private-bus", "=", "n"}),
                UnorderedElementsAre("note.txt", "now.svg"));
}

TEST_F(Completion, CompletesTheProgramsOfACamera) {
    EXPECT_THAT(offers({fenwa_camera, "run", "--private-bus", "--", fenwa, "check", "--deny"}),
                UnorderedElementsAre("--deny-warnings"));
}

}  // namespace
}  // namespace test
