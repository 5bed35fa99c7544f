#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "common/bus/private_bus.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temporary_folder.hpp"

namespace test {

using Environment = std::map<std::string, std::string>;
using Words = std::vector<std::string>;

/// Runs `fenwa` on graphs in a temporary folder, with the probe plug-ins within reach.
class HostTest : public testing::Test {
  protected:
    /// A bus of this test program's own, started when it is first asked for.
    static const std::string& bus();

    /// The command that runs a graph's text, or checks it, with these further arguments.
    /// Events are written as JSON unless `arguments` has a format.
    Words run_command(const std::string& graph, const Words& arguments = {}) const;
    Words check_command(const std::string& graph, const Words& arguments = {}) const;

    /// Runs and checks to the end. In all output the temporary folder's name is taken away, so
    /// that the graph is "graph.toml".
    Ended run(const std::string& graph, const Words& arguments = {},
              const Environment& environment = {}) const;
    Ended check(const std::string& graph, const Words& arguments = {},
                const Environment& environment = {}) const;
    Ended without_folder(Ended ended) const;

    const TemporaryFolder& folder() const { return folder_; }

    /// A graph with the probe plug-in and these lines.
    static std::string probes(const std::string& lines);

  private:
    TemporaryFolder folder_;
};

/// Event lines with every time replaced by 0.
std::string without_times(const std::string& lines);

/// The messages of all "log" lines, each on a line of its own.
std::string messages(const std::string& lines);

/// The lines in which `text` stands.
std::string lines_with(const std::string& lines, const std::string& text);

}  // namespace test
