#include <sstream>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

/// The words between single blanks.
Words split(const std::string& line) {
    std::istringstream stream(line);
    Words words;
    for (std::string word; std::getline(stream, word, ' ');)
        words.push_back(word);
    return words;
}

class CommandLine : public HostTest {};

TEST_F(CommandLine, HelpGoesToStdoutOnEveryLevel) {
    for (const std::string usage :
         {"fenwa [OPTIONS] SUBCOMMAND", "fenwa run [OPTIONS] GRAPH", "fenwa check [OPTIONS] GRAPH",
          "fenwa read [OPTIONS] PORT...", "fenwa write [OPTIONS] PORT VALUE",
          "fenwa watch [OPTIONS] [GLOB...]", "fenwa inspect [OPTIONS] PLUGIN [TYPE]",
          "fenwa list [OPTIONS]", "fenwa graph [OPTIONS] [GRAPH]"}) {
        const std::string level = split(usage)[1];
        const Words words = level.starts_with("[") ? Words{} : Words{level};
        for (const char* option : {"-h", "--help"}) {
            const Ended ended = fenwa(words + Words{option});
            expect_end(ended);
            EXPECT_NE(ended.out.find("Usage: " + usage + "\n"), std::string::npos) << ended.out;
        }
        const Ended version = fenwa(words + Words{"--version"});
        expect_end(version);
        EXPECT_EQ(version.out, "fenwa " FENWA_VERSION "\n");
    }
}

TEST_F(CommandLine, HelpNamesEveryOptionOfRun) {
    const std::string help = fenwa({"run", "--help"}).out;
    for (const char* option :
         {"--bus ADDRESS", "--plugin-dir DIR", "--format", "--for", "--call-timeout", "--color",
          "--control[=NAME]", "--timestamps relative|wall|none", "--output GLOB", "--events LIST",
          "--quiet", "--log-level error|warning|info"})
        EXPECT_NE(help.find(option), std::string::npos) << option;
}

void expect_mistake(const Words& words, const std::string& sentence) {
    const Ended ended = fenwa(words);
    expect_end(ended, 2, "fenwa: " + sentence + "\n");
    EXPECT_EQ(ended.out, "");
}

TEST_F(CommandLine, MistakeIsOneLineOnStderrAndExitCode2) {
    expect_mistake({}, "A subcommand is required");
    const std::string unexpected = "The following argument was not expected: ";
    const std::string empty = ": the value after '=' is missing";
    const std::string no_name = "--control: 'nodots' is not a valid well-known bus name";
    const std::string picture = " is not a picture; the name must end with .svg or .png";
    const std::pair<std::string, std::string> mistakes[]{
        {"chek", "unknown command 'chek'; did you mean 'check'?"},
        {"urn graph.toml", "unknown command 'urn'; did you mean 'run'?"},
        {"raed a.b", "unknown command 'raed'; did you mean 'read'?"},
        {"xyzzy", "unknown command 'xyzzy' (see fenwa --help)"},
        {" ", "unknown command '' (see fenwa --help)"},
        {"run", "GRAPH is required"},
        {"run --control", "GRAPH is required"},
        {"check", "GRAPH is required"},
        {"inspect", "PLUGIN is required"},
        {"read", "PORT is required"},
        {"write", "PORT is required"},
        {"write a.b", "VALUE is required"},
        {"graph", "GRAPH or --control is required"},
        {"run one two", unexpected + "two"},
        {"run one two three", "The following arguments were not expected: two three"},
        {"run --control one two", unexpected + "two"},
        {"inspect one two three", unexpected + "three"},
        {"inspect one --plugin-dir two three four", unexpected + "four"},
        {"write a.b 1 -- -x", unexpected + "-x"},
        {"check one --strict", "unknown option '--strict' (see fenwa check --help)"},
        {"check one --for=3", "unknown option '--for' (see fenwa check --help)"},
        {"check one -x", "unknown option '-x' (see fenwa check --help)"},
        {"run one --deny-warnings", "unknown option '--deny-warnings' (see fenwa run --help)"},
        {"run --xyzzy 3 one", "unknown option '--xyzzy' (see fenwa run --help)"},
        {"run --xyzzy", "unknown option '--xyzzy' (see fenwa run --help)"},
        {"--xyzzy run one", "unknown option '--xyzzy' (see fenwa run --help)"},
        {"--xyzzy", "unknown option '--xyzzy' (see fenwa --help)"},
        {"write a.b -inf", "unknown option '-inf' (see fenwa write --help)"},
        {"read a.b --colour never", "unknown option '--colour'; did you mean '--color'?"},
        {"run one --call-timout=3",
         "unknown option '--call-timout'; did you mean '--call-timeout'?"},
        {"run one --for=", "--for" + empty},
        {"run one --for= 3", "--for" + empty},
        {"run one --control=", "--control" + empty},
        {"graph --control=", "--control" + empty},
        {"read a.b --bus=", "--bus" + empty},
        {"run one --plugin-dir", "--plugin-dir: 1 required DIR missing"},
        {"run one --format xml", "--format: xml not in {text,json}"},
        {"watch --format xml", "--format: xml not in {text,json}"},
        {"check one --format xml", "--format: xml not in {text,json}"},
        {"run one --timestamps off", "--timestamps: off not in {relative,wall,none}"},
        {"run one --log-level debug", "--log-level: debug not in {error,warning,info}"},
        {"run one --events log,outputs",
         "--events: 'outputs' is not one of output, debug, setup and log"},
        {"run one --events log,", "--events: '' is not one of output, debug, setup and log"},
        {"run one --quiet --output a.*", "--output excludes --quiet"},
        {"run one --quiet --events log", "--events excludes --quiet"},
        {"run one --color mauve", "--color: mauve not in {auto,always,never}"},
        {"run one --control=nodots", no_name},
        {"run one --control=:1.7", "--control: ':1.7' is not a valid well-known bus name"},
        {"graph --control=nodots", no_name},
        {"read a.b --control nodots", no_name},
        {"graph one --control", "GRAPH and --control exclude each other"},
        {"graph one --bus session", "--bus requires --control"},
        {"graph one --output one.pdf", "--output: 'one.pdf'" + picture},
        {"graph one --output svg", "--output: 'svg'" + picture},
    };
    for (const auto& [line, sentence] : mistakes)
        expect_mistake(split(line), sentence);
}

TEST_F(CommandLine, TimesAreNumbersOfSecondsInTheirRange) {
    const auto refuse = [](const Words& command, const std::string& option,
                           const std::string& value) {
        expect_mistake(
            command + Words{option + "=" + value},
            option + ": '" + value + "' is not a number of seconds from 0.000001 to 1000000000");
    };
    for (const char* value :
         {"0x10", " 1", "1 ", "+1", "1_0", "soon", "0", "-1", "nan", "inf", "1s", "1e10"}) {
        refuse({"run", "one"}, "--for", value);
        refuse({"run", "one"}, "--call-timeout", value);
        refuse({"inspect", "one"}, "--time-limit", value);
    }
    expect_end(run(block("t", "Timer", "interval = 1000"),
                   {"--call-timeout", "1000000000", "--for", "0.01"}));
}

}  // namespace
}  // namespace test
