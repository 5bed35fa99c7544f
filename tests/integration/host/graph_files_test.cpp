// Every graph in tests/graphs/host has beside it, in NAME.stderr, the whole answer of `fenwa`,
// and in NAME.stdout, if there is one, all that is to be printed.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "tests/integration/host/host_test.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> graph_names() {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(FENWA_TEST_GRAPHS)) {
        if (entry.path().extension() == ".toml")
            names.push_back(entry.path().stem());
    }
    std::sort(names.begin(), names.end());
    return names;
}

class GraphFile : public HostTest, public testing::WithParamInterface<std::string> {
  protected:
    static fs::path file(const std::string& extension) {
        return fs::path(FENWA_TEST_GRAPHS) / (GetParam() + extension);
    }

    /// Expects the exit code and the text of the graph from a command of `fenwa` with options.
    /// @returns what the command writes to stdout, without times.
    std::string expect_said(Words words, int code) const {
        if (words.front() == "run")
            words = words + Words{"--format", "json"};
        const std::string graph = folder().write(GetParam() + ".toml", content_of(file(".toml")));
        Ended ended =
            without_folder(fenwa(words + Words{graph, "--plugin-dir", FENWA_TEST_PLUGINS}));
        static const Pattern folders("(looked in )[^)]*");
        ended.err = folders.replace(ended.err, "$1");
        EXPECT_EQ(ended.code, code);
        if (getenv("FENWA_RENEW") != nullptr)
            std::ofstream(file(".stderr"), std::ios::binary) << ended.err;
        EXPECT_EQ(ended.err, content_of(file(".stderr")));
        if (fs::exists(file(".stdout"))) {
            EXPECT_EQ(ended.out, content_of(file(".stdout")));
        }
        return without_times(ended.out);
    }
};

TEST_P(GraphFile, IsAnsweredWithItsText) {
    static const Pattern form(R"(# (?:fenwa (.*): )?exit code (\d+))");
    std::istringstream graph(content_of(file(".toml")));
    std::string first_line;
    std::getline(graph, first_line);
    const Groups found = form.match(first_line);
    const int code = found.empty() ? 78 : std::stoi(found[2]);
    if (found.empty() || found[1].empty()) {
        EXPECT_EQ(expect_said({"check"}, code), "");
        // Without a bus: the mistakes are found before anything is started.
        EXPECT_EQ(expect_said({"run", "--bus", "unix:path=/no/bus"}, code), exit_line(code));
        return;
    }
    std::istringstream command(found[1]);
    const Words words{std::istream_iterator<std::string>(command), {}};
    const std::string out =
        expect_said(words.front() == "run" ? words + Words{"--bus", bus()} : words, code);
    EXPECT_EQ(lines_with(out, "\"ready\"").empty(), words.front() != "run" || code != 0);
}

INSTANTIATE_TEST_SUITE_P(Tests, GraphFile, testing::ValuesIn(graph_names()), name_of<std::string>);

}  // namespace
}  // namespace test
