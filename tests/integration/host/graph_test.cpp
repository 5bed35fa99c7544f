#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/integration/host/host_test.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;

/// `fenwa graph` of files and of running hosts.
class GraphPicture : public HostTest {
  protected:
    Ended draw(const std::string& graph, const Words& arguments = {},
               const Environment& environment = {}) const {
        Words words{FENWA_PROGRAM, "graph", folder().write("graph.toml", graph), "--plugin-dir",
                    FENWA_TEST_PLUGINS};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return without_folder(run_program(words, environment));
    }

    /// Draws what runs, on the bus of this test program.
    static Ended draw_host(const Words& arguments) {
        Words words{FENWA_PROGRAM, "graph", "--bus", bus()};
        words.insert(words.end(), arguments.begin(), arguments.end());
        return run_program(words);
    }

    [[nodiscard]] std::string path(const std::string& name) const {
        return (folder().path() / name).string();
    }
    [[nodiscard]] std::string content(const std::string& name) const {
        std::ifstream file(folder().path() / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    /// Everything in the folder.
    [[nodiscard]] std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder().path()))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    /// A folder with a program `dot` that does this, to be searched first.
    [[nodiscard]] Environment with_dot(const std::string& script) const {
        fs::create_directory(folder().path() / "bin");
        const std::string program = folder().write("bin/dot", "#!/bin/sh\n" + script);
        fs::permissions(program, fs::perms::owner_all);
        return {{"PATH", path("bin") + ":" + getenv("PATH")}};
    }
};

const std::string counted_ticks =
    "[blocks.t]\ntype = \"Timer\"\ninterval = 1000000\n[blocks.c]\ntype = \"Counter\"\n"
    "[blocks.k]\ntype = \"Terminated\"\nsettings = \"monitor\"\n"
    "[[connections]]\nfrom = \"t.out\"\nto = \"c.tick\"\n";

const std::string head =
    R"(digraph fenwa {
  graph [rankdir=LR, bgcolor="white", nodesep=0.3, ranksep=0.6, pad=0.3];
  node [shape=plain, fontname="DejaVu Sans,Verdana,sans-serif", fontsize=13, fontcolor="#1f2933"];
  edge [color="#4a5663", penwidth=1.3, arrowsize=0.7];

)";
const std::string table =
    R"(    <TABLE BORDER="1" CELLBORDER="0" CELLSPACING="0" CELLPADDING="3" COLOR="#8d99a6" BGCOLOR="white">
)";

std::string title(const std::string& color, const std::string& name, const std::string& type) {
    return R"(      <TR><TD COLSPAN="2" BGCOLOR=")" + color + R"(" CELLPADDING="6"><B>)" + name +
           R"(</B><BR/><FONT COLOR="#66717d" POINT-SIZE="11">)" + type + "</FONT></TD></TR>\n";
}
std::string port(const std::string& side, const std::string& content) {
    const std::string align = side.starts_with("in") ? "LEFT" : "RIGHT";
    return "<TD PORT=\"" + side + "\" ALIGN=\"" + align + "\" BALIGN=\"" + align + "\">" + content +
           "</TD>";
}
std::string faint(const std::string& text, int size) {
    return R"(<FONT COLOR="#66717d" POINT-SIZE=")" + std::to_string(size) + "\">" + text +
           "</FONT>";
}
std::string named(const std::string& text) {
    return R"(<FONT COLOR="#1f2933" POINT-SIZE="12">)" + text + "</FONT>";
}
std::string held(const std::string& text) {
    return R"(<BR/><FONT COLOR="#0b5394" POINT-SIZE="12"><B>)" + text + "</B></FONT>";
}
std::string setting(const std::string& text) {
    return R"(      <HR/><TR><TD COLSPAN="2" ALIGN="LEFT" BALIGN="LEFT" CELLPADDING="5">)" +
           faint(text, 10) + "</TD></TR>\n";
}

/// The picture of `counted_ticks`, with these values where there are some.
std::string picture_of_ticks(const std::string& tick = "", const std::string& count = "",
                             const std::string& own = "", const std::string& monitor = "") {
    const std::string empty = "<TD> </TD>";
    return head + "  block2 [tooltip=\"k (Terminated)\", label=<\n" + table +
           title("#f5e6c6", "k", "Terminated") + "      <TR>" +
           port("in0", faint("▸ ", 11) + named("own") + ' ' + faint("double", 10) + own) + empty +
           "</TR>\n      <TR>" +
           port("in1", faint("▹ ", 11) + named("temp_monitor_in") + ' ' + faint("bool", 10) +
                           "<BR/>" + faint("<I>provided by the host</I>", 10) + monitor) +
           empty + "</TR>\n" + setting("settings = &quot;monitor&quot;") +
           "    </TABLE>>];\n  block1 [tooltip=\"c (Counter)\", label=<\n" + table +
           title("#dcebd2", "c", "Counter") + "      <TR>" +
           port("in0", faint("▸ ", 11) + named("tick") + ' ' + faint("timersource", 10) + tick) +
           port("out0", named("out") + ' ' + faint("double", 10) + faint(" ▸", 11) + count) +
           "</TR>\n    </TABLE>>];\n  block0 [tooltip=\"t (Timer)\", label=<\n" + table +
           title("#d3e3f3", "t", "Timer") + "      <TR>" + empty +
           port("out0", named("out") + ' ' + faint("timersource", 10) + faint(" ▸", 11) + tick) +
           "</TR>\n" + setting("interval = 1000000") +
           "    </TABLE>>];\n"
           "  block0:out0:e -> block1:in0:w [tooltip=\"t.out → c.tick\"];\n}\n";
}

TEST_F(GraphPicture, OfAFileShowsPortsDatatypesAndConnections) {
    const Ended ended = draw(probes(counted_ticks));
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.out, picture_of_ticks());
    EXPECT_EQ(ended.err, "");
}

TEST_F(GraphPicture, OfARunningHostIsTheSameWithValues) {
    Process host(run_command(probes(counted_ticks), {"--bus", bus(), "--control"}));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    const Ended ended = draw_host({"--control"});
    EXPECT_EQ(host.terminate().code, 0);
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.out,
              picture_of_ticks(held("no tick yet"), held("0.0"), held("0.0"), held("true")));
    EXPECT_EQ(ended.err, "");
}

TEST_F(GraphPicture, OfAHostUnderAnotherNameIsFound) {
    Process host(
        run_command(probes(counted_ticks), {"--bus", bus(), "--control=com.example.Drawn"}));
    ASSERT_TRUE(host.wait_for_text("\"ready\""));
    const Ended ended = draw_host({"--control=com.example.Drawn"});
    EXPECT_EQ(host.terminate().code, 0);
    EXPECT_EQ(ended.code, 0) << ended.err;
    const Ended absent = draw_host({"--control=com.example.Drawn"});
    EXPECT_EQ(absent.code, 69);
    EXPECT_EQ(absent.out, "");
    EXPECT_EQ(absent.err, "fenwa: no host owns 'com.example.Drawn' on the bus at '" + bus() +
                              "'; start one with 'fenwa run GRAPH --control', or name its bus "
                              "with --bus\n");
}

TEST_F(GraphPicture, ArrowToAProvidedInputIsHollow) {
    const Ended ended =
        draw(probes("[blocks.r]\ntype = \"Relay\"\n[blocks.k]\ntype = \"Terminated\"\n"
                    "settings = \"monitor\"\n[[connections]]\nfrom = \"r.bool_out\"\n"
                    "to = \"k.temp_monitor_in\"\n"));
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(lines_with(ended.out, "->"),
              "  block0:out3:e -> block1:in1:w [tooltip=\"r.bool_out → k.temp_monitor_in\", "
              "arrowhead=empty];\n");
}

TEST_F(GraphPicture, ObjectsThatABlockExportsAreNamed) {
    EXPECT_EQ(
        lines_with(draw(probes("[blocks.e]\ntype = \"Exporter\"\npath = \"/e\"\n")).out, "exports"),
        R"(      <HR/><TR><TD COLSPAN="2" ALIGN="LEFT" BALIGN="LEFT" CELLPADDING="5">)" +
            faint("path = &quot;/e&quot;", 10) + "<BR/>" + faint("exports com.example.Echo1", 10) +
            "</TD></TR>\n");
}

TEST_F(GraphPicture, PartsThatAreNotConnectedStandBesideEachOther) {
    std::string blocks;
    for (const char* name : {"a", "b", "c", "d", "e"})
        blocks += "[blocks." + std::string(name) + "]\ntype = \"Spinner\"\n";
    EXPECT_EQ(lines_with(draw(probes(blocks)).out, "->"),
              "  block0 -> block3 [style=invis];\n  block1 -> block4 [style=invis];\n");
}

TEST_F(GraphPicture, BlockThatNeedsABusIsDrawnWithAWarningAndThePortsOfItsConnections) {
    const Ended ended = draw(
        probes("[blocks.c]\ntype = \"Caller\"\nearly = true\n[blocks.k]\ntype = \"Terminated\"\n"
               "settings = \"monitor\"\n[[connections]]\nfrom = \"c.out\"\n"
               "to = \"k.temp_monitor_in\"\n"));
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err,
              "graph.toml:2:9: warning: block 'c' (Caller) cannot be checked: it needs a bus to be "
              "built\n[blocks.c]\n        ^\ngraph.toml: 1 warning\n");
    EXPECT_EQ(lines_with(ended.out, "->"),
              "  block0:out0:e -> block1:in1:w [tooltip=\"c.out → k.temp_monitor_in\", "
              "arrowhead=empty];\n");
}

TEST_F(GraphPicture, OneWithMistakesIsNotDrawn) {
    const Ended wrong = draw("[blocks.t]\ntype = \"Timr\"\n", {"--output", path("x.svg")});
    EXPECT_EQ(wrong.code, 78);
    EXPECT_EQ(wrong.out, "");
    EXPECT_EQ(wrong.err,
              "graph.toml:2:8: error: unknown block type 'Timr'\ntype = \"Timr\"\n       ^\n"
              "help: did you mean 'Timer'?\ngraph.toml: 1 error\n");
    EXPECT_EQ(files(), Words{"graph.toml"});
    const Ended coloured = draw("[blocks.t]\ntype = \"Timr\"\n", {"--color=always"});
    EXPECT_EQ(lines_with(coloured.err, "error:"),
              "\x1b[1mgraph.toml:2:8: \x1b[0m\x1b[1;31merror: \x1b[0munknown block type 'Timr'\n");
    const Ended throws = draw(probes("[blocks.p]\ntype = \"Probe\"\nthrows_in = \"setup\"\n"));
    EXPECT_EQ(throws.code, 70);
    EXPECT_EQ(throws.out, "");
    const Ended absent = run_program({FENWA_PROGRAM, "graph", "/no/such.toml"});
    EXPECT_EQ(absent.code, 66);
    EXPECT_EQ(absent.out, "");
}

TEST_F(GraphPicture, IsRenderedAsSvgOrPng) {
    const Ended svg = draw(probes(counted_ticks), {"--output", path("picture.svg")});
    EXPECT_EQ(svg.code, 0);
    EXPECT_EQ(svg.out + svg.err, "");
    const std::string text = content("picture.svg");
    for (const char* part : {"<svg ", ">Counter</text>", ">temp_monitor_in</text>", "</svg>\n"})
        EXPECT_NE(text.find(part), std::string::npos) << part;
    // A file that is there already is replaced.
    folder().write("picture.png", "something else");
    const Ended png = draw(probes(counted_ticks), {"--output", path("picture.png")});
    EXPECT_EQ(png.code, 0) << png.err;
    EXPECT_TRUE(content("picture.png").starts_with("\x89PNG\r\n"));
    EXPECT_EQ(files(), (Words{"graph.toml", "picture.png", "picture.svg"}));
}

TEST_F(GraphPicture, TakesThePlaceOfAFileAsItIsAndOfWhatALinkLeadsTo) {
    namespace fs = std::filesystem;
    folder().write("there.svg", "before");
    fs::permissions(path("there.svg"), fs::perms(0640));
    fs::create_symlink("there.svg", path("link.svg"));
    EXPECT_EQ(draw(probes(counted_ticks), {"--output", path("link.svg")}).code, 0);
    EXPECT_TRUE(fs::is_symlink(path("link.svg")));
    EXPECT_EQ(fs::status(path("there.svg")).permissions(), fs::perms(0640));
    EXPECT_GT(fs::file_size(path("there.svg")), 1000U);
}

TEST_F(GraphPicture, RendererThatFailsSaysWhyAndLeavesTheFileAsItWas) {
    folder().write("picture.svg", "as it was");
    const Ended ended = draw(probes(counted_ticks), {"--output", path("picture.svg")},
                             with_dot("echo '<svg' ; echo 'no layout today' >&2 ; exit 3\n"));
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.out, "");
    EXPECT_EQ(ended.err, "fenwa: 'dot' failed: no layout today\n");
    EXPECT_EQ(content("picture.svg"), "as it was");
    EXPECT_EQ(files(), (Words{"bin", "graph.toml", "picture.svg"}));
    const Ended killed =
        draw(probes(counted_ticks), {"--output", path("picture.svg")}, with_dot("kill -KILL $$\n"));
    EXPECT_EQ(killed.code, 69);
    EXPECT_EQ(killed.err, "fenwa: 'dot' failed\n");
}

TEST_F(GraphPicture, RendererThatIsNotThereIsToBeInstalled) {
    const Ended ended =
        draw(probes(counted_ticks), {"--output", path("picture.svg")}, {{"PATH", path("nothing")}});
    EXPECT_EQ(ended.code, 69);
    EXPECT_EQ(ended.err, "fenwa: cannot find the program 'dot'; install graphviz\n");
    EXPECT_EQ(files(), Words{"graph.toml"});
}

TEST_F(GraphPicture, FileThatCannotBeWrittenIsNamed) {
    const Ended no_folder = draw(probes(counted_ticks), {"--output", path("no/picture.svg")});
    EXPECT_EQ(no_folder.code, 69);
    EXPECT_EQ(no_folder.err, "fenwa: cannot write 'no/picture.svg': No such file or directory\n");
    fs::create_directory(folder().path() / "folder.svg");
    const Ended folder_there = draw(probes(counted_ticks), {"--output", path("folder.svg")});
    EXPECT_EQ(folder_there.code, 69);
    EXPECT_EQ(folder_there.err, "fenwa: cannot write 'folder.svg': Is a directory\n");
    EXPECT_EQ(files(), (Words{"folder.svg", "graph.toml"}));
}

}  // namespace
}  // namespace test
