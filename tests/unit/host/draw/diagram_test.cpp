#include "host/draw/diagram.hpp"

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>

#include "host/draw/dot.hpp"
#include "tests/support/json_printing.hpp"
#include "tests/support/pattern.hpp"
#include "tests/support/temporary_folder.hpp"

namespace host {
namespace {

using common::Json;
using Parts = std::vector<std::vector<std::size_t>>;

/// A block without ports, as in a description.
Json block(const std::string& name, const std::map<std::string, Json>& more = {}) {
    Json made = {{"name", name}, {"type", "T"}, {"settings", Json::object()}};
    for (const auto& [key, value] : more)
        made[key] = value;
    return made;
}

Json graph(const std::vector<Json>& blocks, const std::vector<Json>& connections = {}) {
    return {{"blocks", blocks}, {"connections", connections}};
}

std::vector<std::string> values_of(const Json& values) {
    Json ports = Json::array();
    for (const Json& value : values)
        ports.push_back({{"name", "out"}, {"type", "double"}, {"value", value}});
    const Diagram diagram =
        make_diagram(graph({block("b", {{"outputs", ports}})}), DiagramValues::shown);
    std::vector<std::string> texts;
    for (const DiagramPort& port : diagram.blocks.front().outputs)
        texts.push_back(port.value);
    return texts;
}

TEST(DiagramTest, ShowsValuesForAGlance) {
    EXPECT_EQ(values_of({36.599998474121094,
                         12.0,
                         -1e-9,
                         1e300,
                         "nan",
                         true,
                         -7,
                         {{"ticks", 3}, {"period_ms", 250}},
                         nullptr}),
              (std::vector<std::string>{"36.6", "12.0", "-1e-09", "1e+300", "nan", "true", "-7",
                                        "3 × 250 ms", ""}));
}

TEST(DiagramTest, ShowsSomeSettingsAndAllExportedObjects) {
    Json settings = {{"word", "ünïcödé that is much longer than a picture can show"},
                     {"list", {"a", "b"}}};
    const Json exports = {{{"path", "/a"}, {"interface", "com.example.One"}},
                          {{"path", "/a"}, {"interface", "com.example.Two"}}};
    EXPECT_EQ(
        make_diagram(graph({block("b", {{"settings", settings}, {"exports", exports}})}),
                     DiagramValues::hidden)
            .blocks.front()
            .lines,
        (std::vector<std::string>{"word = \"ünïcödé that is much longer…", "list = [\"a\",\"b\"]",
                                  "exports com.example.One", "exports com.example.Two"}));
    for (int i = 0; i < 4; ++i)
        settings["key" + std::to_string(i)] = i;
    const Diagram many =
        make_diagram(graph({block("b", {{"settings", settings}})}), DiagramValues::hidden);
    EXPECT_EQ(many.blocks.front().lines.size(), 6U);
    EXPECT_EQ(many.blocks.front().lines.back(), "…");
}

TEST(DiagramTest, DrawsEachServiceOnceWithItsBlocks) {
    const Diagram diagram = make_diagram(
        graph({block("a", {{"services", {"com.example.One", "com.example.Two"}}}), block("b"),
               block("c", {{"services", Json::array({"com.example.Two"})}})}),
        DiagramValues::shown);
    ASSERT_EQ(diagram.services.size(), 2U);
    EXPECT_EQ(diagram.services[0].name, "com.example.One");
    EXPECT_EQ(diagram.services[0].blocks, (std::vector<std::size_t>{0}));
    EXPECT_EQ(diagram.services[1].name, "com.example.Two");
    EXPECT_EQ(diagram.services[1].blocks, (std::vector<std::size_t>{0, 2}));
    EXPECT_EQ(connected_parts(diagram), (Parts{{0, 2}, {1}}));
    const std::string dot = to_dot(diagram);
    EXPECT_NE(
        dot.find("label=<Two<BR/><FONT COLOR=\"#66717d\" POINT-SIZE=\"10\">com.example</FONT>>"),
        std::string::npos)
        << dot;
    for (const char* line : {"\n  block0 -> service0 [dir=none", "\n  block0 -> service1 [dir=none",
                             "\n  block2 -> service1 [dir=none"})
        EXPECT_NE(dot.find(line), std::string::npos) << line << dot;
}

TEST(DiagramTest, FindsWhatHangsTogether) {
    Diagram diagram;
    diagram.blocks.resize(6);
    EXPECT_EQ(connected_parts(diagram), (Parts{{0}, {1}, {2}, {3}, {4}, {5}}));
    diagram.connections = {{{4, 0}, {1, 0}}, {{5, 0}, {2, 0}}, {{2, 0}, {1, 0}}};
    EXPECT_EQ(connected_parts(diagram), (Parts{{0}, {1, 2, 4, 5}, {3}}));
    // A circle, and a block that feeds itself, are drawn as well.
    diagram.connections = {{{0, 0}, {1, 0}}, {{1, 0}, {0, 0}}, {{2, 0}, {2, 0}}};
    for (DiagramBlock& each : diagram.blocks) {
        each.inputs.resize(1);
        each.outputs.resize(1);
    }
    EXPECT_EQ(connected_parts(diagram), (Parts{{0, 1}, {2}, {3}, {4}, {5}}));
    EXPECT_NE(to_dot(diagram).find("block0 -> block4 [style=invis]"), std::string::npos);
}

/// The picture that Graphviz draws for a name: the text of its SVG, entities and all.
std::string drawn(const std::string& name) {
    const Json ports = Json::array({{{"name", name}, {"type", name}, {"value", name}}});
    const Diagram diagram =
        make_diagram(graph({block(name, {{"type", name},
                                         {"inputs", ports},
                                         {"outputs", ports},
                                         {"terminated_inputs", ports},
                                         {"settings", Json::object({{name, name}})},
                                         {"services", Json::array({name})}})},
                           {{{"from", name + '.' + name}, {"to", name + '.' + name}}}),
                     DiagramValues::shown);
    const test::TemporaryFolder folder;
    const std::string command =
        "dot -Tsvg '" + folder.write("nasty.dot", to_dot(diagram)) + "' 2>&1";
    std::FILE* const pipe = popen(command.c_str(), "r");
    std::string text;
    char buffer[4096];
    for (std::size_t n = 0; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        text.append(buffer, n);
    EXPECT_EQ(pclose(pipe), 0) << name << text;
    EXPECT_EQ(text.find("Warning"), std::string::npos) << text;
    EXPECT_EQ(text.find("Error"), std::string::npos) << text;
    return text;
}

TEST(DiagramTest, GraphvizDrawsEveryNameAsItIs) {
    const std::vector<std::pair<std::string, std::string>> names{
        {"a \"quoted\" name", "a &quot;quoted&quot; name"},
        {"back\\slash\\", "back\\slash\\"},
        {"\\N\\G\\n", "\\N\\G\\n"},
        {"<b>&amp;</b>", "&lt;b&gt;&amp;amp;&lt;/b&gt;"},
        {"{a|<b>c}", "{a|&lt;b&gt;c}"},
        {"two\nlines\x1b[1m", "two\\nlines\\x1b[1m"},
        {"Größe 温度 ✓", "Größe 温度 ✓"},
        {"no text \xff", "no text \\xff"},
        {"no character \xEF\xBF\xBF", "no character \xEF\xBF\xBD"},
        {"-->]];", "&#45;&#45;&gt;]];"},
        {"%d %s \\\"", "%d %s \\&quot;"},
    };
    for (const auto& [name, text] : names) {
        const std::string svg = drawn(name);
        EXPECT_NE(svg.find(">" + text + "</text>"), std::string::npos) << name << '\n' << svg;
        const std::string hover = test::Pattern("\\\\").replace(text, "⧵");
        EXPECT_NE(svg.find("xlink:title=\"" + hover + " (" + hover + ")\""), std::string::npos)
            << name << '\n'
            << svg;
    }
    EXPECT_NE(drawn("").find("<svg"), std::string::npos);
}

}  // namespace
}  // namespace host
