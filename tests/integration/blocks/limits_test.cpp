// The programs at the limits of a process and of a disk: too few descriptors, too little memory,
// files that may not grow, no room for them. Whatever is missing, they end with a documented exit
// code and a sentence, or go on.
#include <toml++/toml.h>
#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <future>
#include <iostream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

#include "tests/integration/camera/camera_scene.hpp"
#include "tests/support/bus_daemon.hpp"

namespace test {
namespace {

/// A limit as prlimit(1) takes it, or the size of a disk, with its values.
struct Limit {
    std::string name;
    std::string option;
    std::size_t first;
    std::size_t last;
    std::size_t step;
    std::set<int> failures;  ///< the exit codes of programs that it stops
};
std::ostream& operator<<(std::ostream& out, const Limit& limit) {
    return out << limit.name;
}

constexpr std::size_t kibi = 1024;
constexpr std::size_t mebi = 1024 * kibi;

const std::string graph = FENWA_EXAMPLES "/graphs/temperature.toml";

class Limits : public CameraScene, public ::testing::WithParamInterface<Limit> {
  protected:
    void SetUp() override { open(); }

    /// The end of a program, the files in its folder then, and what is recorded in them.
    struct Outcome {
        Ended ended;
        Lines files;
        std::string recording;
    };

    /// The commands, with the folder FOLDER for their output.
    [[nodiscard]] std::map<std::string, Lines> commands() const {
        const std::string camera = FENWA_CAMERA_PROGRAM;
        const std::string fenwa = FENWA_PROGRAM;
        return {{"fenwa run",
                 {fenwa, "run", graph, "--bus", address(), "--for", "0.05", "--format", "json"}},
                {"fenwa check", {fenwa, "check", graph}},
                {"fenwa inspect", {fenwa, "inspect", "libfenwa-temperature.so"}},
                {"fenwa graph --output", {fenwa, "graph", graph, "--output", "FOLDER/graph.svg"}},
                {"fenwa-camera run", {camera, "run", "--private-bus", "--verbose", "--", "true"}},
                {"fenwa-camera record",
                 {camera, "record", "--bus", address(), "--output", "FOLDER/record.toml", "--for",
                  "0.05"}}};
    }

    /// Runs a command to its end, its stdout in a file, because a pipe has no size.
    [[nodiscard]] Outcome run_limited(const std::string& name, Lines command,
                                      std::size_t value) const {
        std::string output = (folder().path() / (name + std::to_string(value))).string();
        Lines limited{"prlimit", GetParam().option + '=' + std::to_string(value) + ':' +
                                     std::to_string(value)};
        Lines in_namespace;
        if (GetParam().option == "disk") {
            limited = {};
            output = temporary();
            // Each command has a disk of its own, which goes with it, and of which 4 KiB are taken.
            const std::string mount =
                R"(mount -t tmpfs -o "size=$1" none "$0" && printf x > "$0/x" && shift && exec "$@")";
            in_namespace = Lines{"unshare", "--map-current-user", "--keep-caps", "--mount"} +
                           Lines{"sh", "-c", mount, output, std::to_string(value)};
        } else {
            std::filesystem::create_directory(output);
        }
        for (std::string& word : command) {
            if (word.starts_with("FOLDER"))
                word.replace(0, std::strlen("FOLDER"), output);
        }
        // Without descriptors that the test's own starter has left open.
        const Lines in_folder{"sh", "-c",
                              R"(exec 3>&- 4>&- 5>&- 6>&- 7>&- 8>&- 9>&-
                                 "$@" > "$0/out"; code=$?
                                 ls -A "$0"; echo --; cat "$0/record.toml" 2>&-; exit $code)",
                              output};
        Outcome outcome{
            run_program(in_namespace + in_folder + limited + command, environment(), seconds(15)),
            {},
            {}};
        std::istringstream out(outcome.ended.out);
        for (std::string file; std::getline(out, file) && file != "--";)
            outcome.files.push_back(file);
        outcome.recording.assign(std::istreambuf_iterator<char>(out), {});
        return outcome;
    }

    /// Whether the program was not even loaded: what the kernel or the loader does is not ours.
    static bool was_not_loaded(const Ended& ended) {
        return (ended.code == 127 &&
                ended.err.find("error while loading shared libraries: ") != std::string::npos) ||
               (ended.code == 128 + SIGSEGV && GetParam().option == "--as" &&
                ended.err == "Segmentation fault\n");
    }

    static void expect_documented_end(const Ended& ended) {
        if (ended.code != 0) {
            EXPECT_TRUE(GetParam().failures.contains(ended.code)) << ended.code << ' ' << ended.err;
            // Not the bare name of an error, such as "Too many open files". Where dbus-broker
            // reaches its own limit, a camera loses it.
            const std::string lost = on_dbus_broker() ? "the connection to the bus was lost|" : "";
            EXPECT_THAT(ended.err,
                        AnyOf(ContainsRegex("(^|\n)fenwa(-camera)?: [^\n]*(" + lost +
                                            "cannot |no memory|does not load|'dot' failed)"
                                            "[^\n]*\n$"),
                              ContainsRegex(": [0-9]+ errors?\n$")));
        }
    }
};

TEST_P(Limits, EndEachProgramWithADocumentedSentenceOrNotAtAll) {
    Limit limit = GetParam();
    // dbus-broker maps a file of 2 MiB, without which a camera has no bus of its own.
    if (limit.option == "--fsize" && on_dbus_broker()) {
        limit.last = 4 * mebi;
        limit.step = 256 * kibi;
    }
    constexpr std::size_t at_once = 8;
    for (const auto& [name, command] : commands()) {
        std::map<std::string, std::size_t> ends;
        for (std::size_t first = limit.first; first <= limit.last; first += at_once * limit.step) {
            std::vector<std::pair<std::size_t, std::future<Outcome>>> runs;
            for (std::size_t i = 0; i < at_once && first + i * limit.step <= limit.last; ++i) {
                const std::size_t value = first + i * limit.step;
                runs.emplace_back(value, std::async(std::launch::async,
                                                    [=, this, name = name, command = command] {
                                                        return run_limited(name, command, value);
                                                    }));
            }
            for (auto& [value, run] : runs) {
                SCOPED_TRACE(name + " with " + limit.option + ' ' + std::to_string(value));
                const auto [ended, files, recording] = run.get();
                // A picture that cannot be finished is removed, a recording has the steps so far.
                EXPECT_THAT(files, Each(AnyOf("out", "x", "graph.svg", "record.toml")));
                if (ended.code != 0) {
                    EXPECT_THAT(files, Each(AnyOf("out", "x", "record.toml")));
                }
                EXPECT_NO_THROW(toml::parse(recording)) << recording;
                if (was_not_loaded(ended)) {
                    EXPECT_EQ(ends.size(), ends.count("not loaded")) << "it was, with less";
                    ++ends["not loaded"];
                    continue;
                }
                ++ends[std::to_string(ended.code)];
                expect_documented_end(ended);
            }
        }
        std::cout << name << " with " << limit.option << ' ' << limit.first << " to " << limit.last
                  << ':';
        for (const auto& [end, count] : ends)
            std::cout << ' ' << count << " x " << end;
        std::cout << '\n';
        EXPECT_GT(ends["0"], 0U) << "there is enough at the end";
        // All but the check have something to write, and none loses it in silence.
        if (limit.option == "disk" && name != "fenwa check") {
            EXPECT_GT(ends["69"], 0U) << name;
        }
        EXPECT_LT(ends["not loaded"], 4U) << name;
    }
    close();
    expect_nothing_left();
}

INSTANTIATE_TEST_SUITE_P(
    Of, Limits,
    ::testing::Values(Limit{"Descriptors", "--nofile", 3, 64, 1, {69, 70}},
                      Limit{"LittleMemory", "--as", 4 * mebi, 96 * mebi, 4 * mebi, {69, 70}},
                      Limit{"Memory", "--as", 100 * mebi, 400 * mebi, 50 * mebi, {69}},
                      Limit{"FileSize", "--fsize", 0, 16000, 1000, {69}},
                      Limit{"Disk", "disk", 4 * kibi, 96 * kibi, 4 * kibi, {69}}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace test
