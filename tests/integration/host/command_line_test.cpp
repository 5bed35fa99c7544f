#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

Ended fenwa(Words arguments) {
    arguments.insert(arguments.begin(), FENWA_PROGRAM);
    return run_program(arguments);
}

class CommandLine : public HostTest {};

TEST_F(CommandLine, HelpGoesToStdoutOnEveryLevel) {
    const std::map<std::string, Words> usages{
        {"Usage: fenwa [OPTIONS] SUBCOMMAND\n", {}},
        {"Usage: fenwa run [OPTIONS] GRAPH\n", {"run"}},
        {"Usage: fenwa check [OPTIONS] GRAPH\n", {"check"}},
        {"Usage: fenwa read [OPTIONS] PORT\n", {"read"}},
        {"Usage: fenwa write [OPTIONS] PORT VALUE\n", {"write"}},
        {"Usage: fenwa watch [OPTIONS]\n", {"watch"}},
        {"Usage: fenwa inspect [OPTIONS] PLUGIN [TYPE]\n", {"inspect"}},
        {"Usage: fenwa graph [OPTIONS] [GRAPH]\n", {"graph"}},
    };
    for (const auto& [usage, level] : usages) {
        for (const char* option : {"-h", "--help"}) {
            Words words = level;
            words.push_back(option);
            const Ended ended = fenwa(words);
            EXPECT_EQ(ended.code, 0) << usage;
            EXPECT_NE(ended.out.find(usage), std::string::npos) << ended.out;
            EXPECT_EQ(ended.err, "");
        }
    }
}

TEST_F(CommandLine, HelpNamesEveryOptionOfRun) {
    const std::string help = fenwa({"run", "--help"}).out;
    for (const char* option : {"--bus ADDRESS", "--plugin-dir DIR", "--format", "--for",
                               "--call-timeout", "--color", "--control[=NAME]"})
        EXPECT_NE(help.find(option), std::string::npos) << option;
}

TEST_F(CommandLine, VersionGoesToStdoutOnEveryLevel) {
    for (const Words& words :
         {Words{"--version"}, Words{"run", "--version"}, Words{"check", "--version"},
          Words{"read", "--version"}, Words{"write", "--version"}, Words{"watch", "--version"},
          Words{"inspect", "--version"}, Words{"graph", "--version"}}) {
        const Ended ended = fenwa(words);
        EXPECT_EQ(ended.code, 0);
        EXPECT_EQ(ended.out, "fenwa " FENWA_VERSION "\n");
        EXPECT_EQ(ended.err, "");
    }
}

struct Mistake {
    Words words;
    std::string sentence;
};

void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << mistake.sentence;
}

class WrongCommandLine : public testing::TestWithParam<Mistake> {};

TEST_P(WrongCommandLine, IsOneLineOnStderrAndExitCode2) {
    const Ended ended = fenwa(GetParam().words);
    EXPECT_EQ(ended.code, 2);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "fenwa: " + GetParam().sentence + "\n");
}

const std::string seconds = " is not a number of seconds from 0.000001 to 1000000000";

INSTANTIATE_TEST_SUITE_P(
    All, WrongCommandLine,
    testing::Values(
        Mistake{{}, "A subcommand is required"},
        Mistake{{"chek"}, "unknown command 'chek'; did you mean 'check'?"},
        Mistake{{"urn", "graph.toml"}, "unknown command 'urn'; did you mean 'run'?"},
        Mistake{{"xyzzy"}, "unknown command 'xyzzy' (see fenwa --help)"},
        Mistake{{""}, "unknown command '' (see fenwa --help)"},
        Mistake{{"run"}, "GRAPH is required"}, Mistake{{"check"}, "GRAPH is required"},
        Mistake{{"run", "one", "two"}, "The following argument was not expected: two"},
        Mistake{{"run", "one", "two", "three"},
                "The following arguments were not expected: two three"},
        Mistake{{"check", "one", "--strict"}, "unknown option '--strict' (see fenwa check --help)"},
        Mistake{{"check", "one", "--for=3"}, "unknown option '--for' (see fenwa check --help)"},
        Mistake{{"run", "one", "--deny-warnings"},
                "unknown option '--deny-warnings' (see fenwa run --help)"},
        Mistake{{"run", "--xyzzy", "3", "one"}, "unknown option '--xyzzy' (see fenwa run --help)"},
        Mistake{{"run", "--xyzzy"}, "unknown option '--xyzzy' (see fenwa run --help)"},
        Mistake{{"read", "a.b", "--colour", "never"},
                "unknown option '--colour'; did you mean '--color'?"},
        Mistake{{"run", "one", "--call-timout=3"},
                "unknown option '--call-timout'; did you mean '--call-timeout'?"},
        Mistake{{"check", "one", "-x"}, "unknown option '-x' (see fenwa check --help)"},
        Mistake{{"write", "a.b", "-inf"}, "unknown option '-inf' (see fenwa write --help)"},
        Mistake{{"write", "a.b", "1", "--", "-x"}, "The following argument was not expected: -x"},
        Mistake{{"--xyzzy"}, "unknown option '--xyzzy' (see fenwa --help)"},
        Mistake{{"--xyzzy", "run", "one"}, "unknown option '--xyzzy' (see fenwa run --help)"},
        Mistake{{"run", "one", "--for="}, "--for: the value after '=' is missing"},
        Mistake{{"run", "one", "--for=", "3"}, "--for: the value after '=' is missing"},
        Mistake{{"run", "one", "--control="}, "--control: the value after '=' is missing"},
        Mistake{{"graph", "--control="}, "--control: the value after '=' is missing"},
        Mistake{{"read", "a.b", "--bus="}, "--bus: the value after '=' is missing"},
        Mistake{{"run", "one", "--for", "0x10"}, "--for: '0x10'" + seconds},
        Mistake{{"run", "one", "--for", " 1"}, "--for: ' 1'" + seconds},
        Mistake{{"run", "one", "--for", "1 "}, "--for: '1 '" + seconds},
        Mistake{{"run", "one", "--for", "+1"}, "--for: '+1'" + seconds},
        Mistake{{"run", "one", "--for", "1_0"}, "--for: '1_0'" + seconds},
        Mistake{{"run", "one", "--call-timeout", "0x10"}, "--call-timeout: '0x10'" + seconds},
        Mistake{{"inspect", "one", "--time-limit", "0x10"}, "--time-limit: '0x10'" + seconds},
        Mistake{{"run", "one", "--format", "xml"}, "--format: xml not in {text,json}"},
        Mistake{{"run", "one", "--color", "mauve"}, "--color: mauve not in {auto,always,never}"},
        Mistake{{"run", "one", "--plugin-dir"}, "--plugin-dir: 1 required DIR missing"},
        Mistake{{"run", "one", "--for", "soon"}, "--for: 'soon'" + seconds},
        Mistake{{"run", "one", "--for", "0"}, "--for: '0'" + seconds},
        Mistake{{"run", "one", "--for=-1"}, "--for: '-1'" + seconds},
        Mistake{{"run", "one", "--for", "nan"}, "--for: 'nan'" + seconds},
        Mistake{{"run", "one", "--for", "inf"}, "--for: 'inf'" + seconds},
        Mistake{{"run", "one", "--for", "1s"}, "--for: '1s'" + seconds},
        Mistake{{"run", "one", "--control=nodots"},
                "--control: 'nodots' is not a valid well-known bus name"},
        Mistake{{"run", "one", "--control=:1.7"},
                "--control: ':1.7' is not a valid well-known bus name"},
        Mistake{{"run", "--control"}, "GRAPH is required"},
        Mistake{{"run", "--control", "one", "two"}, "The following argument was not expected: two"},
        Mistake{{"inspect"}, "PLUGIN is required"},
        Mistake{{"inspect", "one", "two", "three"},
                "The following argument was not expected: three"},
        Mistake{{"inspect", "one", "--plugin-dir", "two", "three", "four"},
                "The following argument was not expected: four"},
        Mistake{{"inspect", "one", "--time-limit", "0"}, "--time-limit: '0'" + seconds},
        Mistake{{"graph"}, "GRAPH or --control is required"},
        Mistake{{"graph", "one", "--control"}, "GRAPH and --control exclude each other"},
        Mistake{{"graph", "--control=nodots"},
                "--control: 'nodots' is not a valid well-known bus name"},
        Mistake{{"graph", "one", "--bus", "session"}, "--bus requires --control"},
        Mistake{{"graph", "one", "--output", "one.pdf"},
                "--output: 'one.pdf' is not a picture; the name must end with .svg or .png"},
        Mistake{{"graph", "one", "--output", "svg"},
                "--output: 'svg' is not a picture; the name must end with .svg or .png"},
        Mistake{{"read"}, "PORT is required"}, Mistake{{"write"}, "PORT is required"},
        Mistake{{"write", "a.b"}, "VALUE is required"},
        Mistake{{"watch", "a.b"}, "The following argument was not expected: a.b"},
        Mistake{{"watch", "--format", "xml"}, "--format: xml not in {text,json}"},
        Mistake{{"read", "a.b", "--control", "nodots"},
                "--control: 'nodots' is not a valid well-known bus name"},
        Mistake{{"raed", "a.b"}, "unknown command 'raed'; did you mean 'read'?"},
        Mistake{{"run", "one", "--call-timeout", "1e10"}, "--call-timeout: '1e10'" + seconds},
        Mistake{{"run", "one", "--call-timeout", "nan"}, "--call-timeout: 'nan'" + seconds}));

TEST_F(CommandLine, LongestCallTimeoutIsUsable) {
    const Ended ended = run("[blocks.t]\ntype = \"Timer\"\ninterval = 1000\n",
                            {"--call-timeout", "1000000000", "--for", "0.01"});
    EXPECT_EQ(ended.code, 0) << ended.err;
}

}  // namespace
}  // namespace test
