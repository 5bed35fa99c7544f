#include "host/check/graph_check.hpp"

#include <gtest/gtest.h>

namespace host {
namespace {

using Sentences = std::vector<std::string>;

/// Blocks of a plug-in that does not behave, in child processes that have little time.
class GraphProbeTest : public testing::Test {
  protected:
    ProbeResult probe_blocks(const std::string& type, std::size_t count) {
        std::vector<BlockEntry> blocks(count);
        ProbeJob job{types_, {{"libmisbehaving.so", {1, 12}}}, {FENWA_TEST_PLUGINS}, {}};
        job.limit = std::chrono::milliseconds(500);
        for (std::size_t i = 0; i < count; ++i) {
            blocks[i].name = "b" + std::to_string(i);
            blocks[i].type = {type, {1, 1}};
            job.blocks.push_back(&blocks[i]);
        }
        return probe(job, diagnostics_);
    }

    BlockTypes types_{nullptr};
    common::Diagnostics diagnostics_{"graph.toml"};
};

TEST_F(GraphProbeTest, TriesNoFurtherBlockAfterThreeThatHung) {
    EXPECT_EQ(probe_blocks("Hanging", 5).not_mistakes, 4U);
    Sentences said;
    for (const char* block : {"b0", "b1", "b2"})
        said.push_back("block '" + std::string(block) +
                       "' (Hanging) did not come back from its constructor within 0.5 s");
    said.emplace_back(
        "the rest of the graph is not checked, because too much of it has crashed or hung");
    EXPECT_EQ(diagnostics_.sentences(common::Diagnostics::Severity::error), said);
}

}  // namespace
}  // namespace host
