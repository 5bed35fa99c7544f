#include <algorithm>
#include <filesystem>

#include "tests/integration/host/host_test.hpp"
#include "tests/support/pattern.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;

const std::string counted_ticks = R"(blocks.t = {type = "Timer", interval = 1000000}
                                     blocks.c = {type = "Counter"}
                                     blocks.k = {type = "Terminated", settings = "monitor"}
                                     connections = [{from = "t.out", to = "c.tick"}])";

/// `fenwa graph` of files and of running hosts. The text of a picture is in tests/graphs/host.
class GraphPicture : public HostTest {
  protected:
    Ended draw(const std::string& graph, const Words& arguments = {},
               const Environment& environment = {}) const {
        return without_folder(run_program(command("graph", graph, arguments), environment));
    }
    Ended draw_to(const std::string& name, const Environment& environment = {}) const {
        return draw(counted_ticks, {"--output", path(name)}, environment);
    }

    /// Everything in the folder.
    [[nodiscard]] Words files() const {
        Words names;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder().path()))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    /// A folder with a program `dot` that does this, to be searched first.
    [[nodiscard]] Environment with_dot(const std::string& script) const {
        fs::create_directory(path("bin"));
        fs::permissions(folder().write("bin/dot", "#!/bin/sh\n" + script), fs::perms::owner_all);
        return {{"PATH", path("bin") + ":" + getenv("PATH")}};
    }
};

TEST_F(GraphPicture, OfARunningHostIsThatOfItsFileWithValuesAndIsFoundByItsName) {
    static const Pattern value(
        "<BR/><FONT COLOR=\"#0b5394\" POINT-SIZE=\"12\"><B>([^<]*)</B>"
        "</FONT>");
    for (const std::string option : {"--control", "--control=com.example.Drawn"}) {
        start(counted_ticks, {option});
        const Ended ended = fenwa({"graph", "--bus", bus(), option});
        expect_end(ended);
        EXPECT_EQ(value.replace(ended.out, ""), draw(counted_ticks).out);
        Words values;
        for (const Groups& shown : value.find_all(ended.out))
            values.push_back(shown[1]);
        EXPECT_EQ(values, (Words{"0.0", "true", "no tick yet", "0.0", "no tick yet"}));
    }
}

TEST_F(GraphPicture, OneWithMistakesIsNotDrawn) {
    const Ended wrong = draw(block("t", "Timr"), {"--output", path("x.svg")});
    expect_end(wrong, 78,
               "graph.toml:2:20: error: unknown block type 'Timr'\nblocks.t = {type = \"Timr\"}\n"
               "                   ^\nhelp: did you mean 'Timer'?\ngraph.toml: 1 error\n");
    EXPECT_EQ(wrong.out, "");
    EXPECT_EQ(files(), Words{"graph.toml"});
    const std::string aborting =
        "plugins = [\"libmisbehaving.so\"]\n" + block("a", "Aborting", "before = 1");
    for (const std::string& graph : {aborting, block("p", "Probe", "throws_in = \"setup\"")}) {
        const Ended failed = draw(graph);
        EXPECT_EQ(failed.code, 70);
        EXPECT_EQ(failed.out, "");
    }
}

TEST_F(GraphPicture, IsRenderedAsSvgOrPng) {
    const Ended svg = draw_to("picture.svg");
    expect_end(svg);
    EXPECT_EQ(svg.out, "");
    const std::string text = content_of(path("picture.svg"));
    for (const char* part : {"<svg ", ">Counter</text>", ">temp_monitor_in</text>", "</svg>\n"})
        EXPECT_NE(text.find(part), std::string::npos) << part;
    // A file that is there already is replaced.
    folder().write("picture.png", "something else");
    expect_end(draw_to("picture.png"));
    EXPECT_TRUE(content_of(path("picture.png")).starts_with("\x89PNG\r\n"));
    EXPECT_EQ(files(), (Words{"graph.toml", "picture.png", "picture.svg"}));
}

TEST_F(GraphPicture, TakesThePlaceOfAFileWithItsPermissionsAndFollowsALink) {
    folder().write("there.svg", "before");
    fs::permissions(path("there.svg"), fs::perms(0640));
    fs::create_symlink("there.svg", path("link.svg"));
    expect_end(draw_to("link.svg"));
    EXPECT_TRUE(fs::is_symlink(path("link.svg")));
    EXPECT_EQ(fs::status(path("there.svg")).permissions(), fs::perms(0640));
    EXPECT_GT(fs::file_size(path("there.svg")), 1000U);
}

TEST_F(GraphPicture, RendererThatFailsSaysWhyAndLeavesTheFileAsItWas) {
    folder().write("picture.svg", "as it was");
    const Ended ended =
        draw_to("picture.svg", with_dot("echo '<svg' ; echo 'no layout today' >&2 ; exit 3\n"));
    expect_end(ended, 69, "fenwa: 'dot' failed: no layout today\n");
    EXPECT_EQ(ended.out, "");
    expect_end(draw_to("picture.svg", with_dot("kill -KILL $$\n")), 69, "fenwa: 'dot' failed\n");
    EXPECT_EQ(content_of(path("picture.svg")), "as it was");
    EXPECT_EQ(files(), (Words{"bin", "graph.toml", "picture.svg"}));
}

TEST_F(GraphPicture, ThatCannotBeRenderedOrWrittenLeavesNoFile) {
    fs::create_directory(path("folder.svg"));
    expect_end(draw_to("picture.svg", {{"PATH", path("nothing")}}), 69,
               "fenwa: cannot find the program 'dot'; install graphviz\n");
    expect_end(draw_to("no/picture.svg"), 69,
               "fenwa: cannot write 'no/picture.svg': No such file or directory\n");
    expect_end(draw_to("folder.svg"), 69, "fenwa: cannot write 'folder.svg': Is a directory\n");
    EXPECT_EQ(files(), (Words{"folder.svg", "graph.toml"}));
}

}  // namespace
}  // namespace test
