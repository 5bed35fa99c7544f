#include "tests/pages/shell.hpp"

#include <gtest/gtest.h>

#include "tests/pages/help.hpp"
#include "tests/support/process.hpp"

namespace test {

std::string Shell::run(const std::string& script, const Words& words) const {
    std::string text = folder.empty() ? "" : "cd \"" + folder + "\"\n";
    text += setup + "\n. \"$1\"\nshift\n" + script;
    Words command{"bash", "--norc", "--noprofile", "-c", text, "bash", FENWA_COMPLETION};
    command.insert(command.end(), words.begin(), words.end());
    // Without a bus of its own no test should find that of the machine.
    const Ended ended = run_program(
        command, {{"DBUS_SYSTEM_BUS_ADDRESS", bus.empty() ? "unix:path=/nowhere" : bus}});
    EXPECT_EQ(ended.err, "");
    EXPECT_EQ(ended.code, 0);
    return ended.out;
}

Words Shell::offers(const Words& words) const {
    Words lines = split(run("COMP_WORDS=(\"$@\")\nCOMP_CWORD=$(($# - 1))\n_fenwa\n"
                            "for word in ${COMPREPLY[@]+\"${COMPREPLY[@]}\"}; do\n"
                            "    printf '%s\\n' \"$word\"\ndone\n",
                            words),
                        "\n");
    lines.pop_back();
    return lines;
}

std::pair<std::string, std::string> Shell::state_around(const Words& words) const {
    const std::string out =
        run("state() { set +o; shopt -p; printf 'IFS=%q %s\\n' \"${IFS-unset}\" "
            "\"$COMP_WORDBREAKS\"; }\n"
            "COMP_WORDBREAKS=$' \\t\\n\"><=;|&(:'\n"
            "COMP_WORDS=(\"$@\")\nCOMP_CWORD=$(($# - 1))\n"
            "state\necho =====\n_fenwa\nstate\n",
            words);
    const Words halves = split(out, "=====\n");
    EXPECT_EQ(halves.size(), 2U) << out;
    return {halves.front(), halves.back()};
}

}  // namespace test
