// Every graph of the examples is right and runs without a complaint.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "common/text/json.hpp"
#include "tests/support/json_printing.hpp"
#include "tests/support/pattern.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temporary_folder.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;

const std::string programs = FENWA_BINARIES;

std::vector<std::string> graphs() {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry :
         fs::directory_iterator(fs::path(FENWA_PROJECT) / "examples/graphs"))
        names.push_back(entry.path().stem().string());
    std::sort(names.begin(), names.end());
    return names;
}

class ExampleTest : public ::testing::TestWithParam<std::string> {
  protected:
    [[nodiscard]] static std::string file() {
        return std::string(FENWA_PROJECT) + "/examples/graphs/" + GetParam() + ".toml";
    }
};

TEST_P(ExampleTest, HasNoMistakes) {
    const Ended ended = run_program({programs + "/fenwa", "check", "--deny-warnings", file()});
    EXPECT_EQ(ended.code, 0) << ended.err;
}

TEST_P(ExampleTest, RunsWithoutAComplaint) {
    const Ended ended =
        run_program({programs + "/fenwa-camera", "run", "--private-bus", "--format", "json", "--",
                     programs + "/fenwa", "run", "--format", "json", "--for", "3", file()});
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(ended.err, "");
    int outputs = 0;
    std::istringstream lines(ended.out);
    for (std::string line; std::getline(lines, line);) {
        const common::Json event = common::parse_json(line, "the text");
        if (event["event"] == "output")
            ++outputs;
        EXPECT_FALSE(event["event"] == "log" && event["level"] != 4) << line;
        EXPECT_FALSE(event["event"] == "reply" && event.contains("error")) << line;
    }
    EXPECT_GT(outputs, 0);
}

/// All that is written in a picture. Where it stands depends on Graphviz and on the fonts.
std::multiset<std::string> words_of(const fs::path& picture) {
    std::ifstream file(picture);
    const std::string svg((std::istreambuf_iterator<char>(file)), {});
    static const Pattern text(">([^<]*)</text>");
    std::multiset<std::string> words;
    for (const Groups& found : text.find_all(svg))
        words.insert(found[1]);
    return words;
}

TEST(GuidePictureTest, ShowsTheCamerasGraphAsItIs) {
    const TemporaryFolder folder;
    const fs::path fresh = folder.path() / "camera-graph.svg";
    const fs::path project = FENWA_PROJECT;
    const Ended ended = run_program({programs + "/fenwa", "graph",
                                     (project / "examples/graphs/camera.toml").string(), "--output",
                                     fresh.string()});
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_EQ(words_of(project / "docs/camera-graph.svg"), words_of(fresh));
    EXPECT_EQ(words_of(fresh).count("reader"), 1U);
    EXPECT_LT(fs::file_size(project / "docs/camera-graph.svg"), 60'000U);
}

INSTANTIATE_TEST_SUITE_P(Graph, ExampleTest, ::testing::ValuesIn(graphs()), [](const auto& graph) {
    std::string name = graph.param;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

}  // namespace
}  // namespace test
