#pragma once

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <ostream>
#include <string>
#include <type_traits>
#include <vector>

#include "common/bus/private_bus.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temporary_folder.hpp"

namespace test {

using Environment = std::map<std::string, std::string>;
using Words = std::vector<std::string>;

Words operator+(Words words, const Words& more);

/// Runs `fenwa` to its end.
Ended fenwa(const Words& arguments, const Environment& environment = {});

/// Expects an exit code and the whole of stderr. A failure names the caller's place; clang 14 has
/// no std::source_location.
void expect_end(const Ended& ended, int code = 0, const std::string& err = "",
                const char* file = __builtin_FILE(), int line = __builtin_LINE());

/// A host that is ready. It is stopped at the end, with exit code 0 unless the test has waited for
/// another one.
class RunningHost : public Process {
  public:
    /// @param sign in a line of stdout: the host has got so far.
    /// @throws std::runtime_error when it does not.
    explicit RunningHost(const Words& command, const std::string& sign = "\"ready\"",
                         const Environment& environment = {});
    ~RunningHost();
};

/// Runs `fenwa` on graphs in a temporary folder, with the probe plug-ins within reach. A graph that
/// does not begin with its plug-ins has the probe plug-in, in a line before its own.
class HostTest : public testing::Test {
  protected:
    /// A bus of this test program's own, started when it is first asked for.
    static const std::string& bus();

    /// `fenwa COMMAND GRAPH --plugin-dir … ARGUMENTS`, after the graph is written to "graph.toml".
    Words command(const std::string& name, const std::string& graph,
                  const Words& arguments = {}) const;
    /// `fenwa run`, on the test's bus and with events as JSON unless `arguments` say otherwise.
    Words run_command(const std::string& graph, const Words& arguments = {}) const;
    std::string write_graph(const std::string& graph) const;

    /// Run to the end, with the temporary folder's name taken out of all output.
    Ended run(const std::string& graph, const Words& arguments = {},
              const Environment& environment = {}) const;
    Ended check(const std::string& graph, const Words& arguments = {}) const;
    Ended without_folder(Ended ended) const;
    std::string without_folder(const std::string& text) const;

    /// Starts the test's host, after the last one is stopped.
    void start(const std::string& graph, const Words& arguments = {},
               const std::string& sign = "\"ready\"", const Environment& environment = {});
    Process& host() { return *host_; }
    /// Expects that the host stops with exit code 0 and without a word on stderr.
    std::string stop();
    /// Has the host read its graph again, the one given if any. @returns what it writes to stderr.
    std::string reload(const std::optional<std::string>& graph = std::nullopt);

    const TemporaryFolder& folder() const { return folder_; }
    std::string path(const std::string& name) const { return (folder_.path() / name).string(); }

  private:
    TemporaryFolder folder_;
    std::optional<RunningHost> host_;
};

/// A row of a table of tests, shown as its name.
struct Case {
    std::string name;
};
std::ostream& operator<<(std::ostream& out, const Case& row);
template <class Row>
std::string name_of(const testing::TestParamInfo<Row>& row) {
    if constexpr (std::is_same_v<Row, std::string>)
        return row.param;
    else
        return row.param.name;
}

/// A line of a graph: `blocks.NAME = {type = "TYPE", SETTINGS}`.
std::string block(const std::string& name, const std::string& type,
                  const std::string& settings = {});

/// Event lines with every time replaced by 0, and such lines.
std::string without_times(const std::string& lines);
inline const std::string ready_line = "{\"event\":\"ready\",\"time\":0}\n";
std::string exit_line(int code);
std::string log_line(const std::string& block, const std::string& message, int level = 4);
std::string output_line(const std::string& block, const std::string& port, const std::string& type,
                        const std::string& value);

/// The messages of all "log" lines, each on a line of its own.
std::string messages(const std::string& lines);

std::string content_of(const std::string& path);
/// A file beside the tests, without its line ends.
std::string joined_lines(const std::string& name);

/// The lines that contain `text`, and their number.
std::string lines_with(const std::string& lines, const std::string& text);
long count_lines(const std::string& lines, const std::string& text = {});

}  // namespace test
