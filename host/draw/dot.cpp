#include "host/draw/dot.hpp"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <sstream>

#include "common/text/diagnostics.hpp"
#include "common/text/xml_text.hpp"

namespace host {
namespace {

// Colours of the titles, one a block type, used in turn.
constexpr const char* type_colors[] = {"#d3e3f3", "#dcebd2", "#f5e6c6", "#e3dbf0",
                                       "#f3d8d6", "#cfe7e6", "#f2dcea", "#e4e6ea"};
constexpr const char* frame_color = "#8d99a6";
constexpr const char* text_color = "#1f2933";
constexpr const char* faint_color = "#66717d";
constexpr const char* value_color = "#0b5394";
constexpr const char* trouble_color = "#b3261e";
constexpr const char* service_color = "#f4f5f7";
// The second font has the widths of the first, for a viewer of an SVG that lacks it.
constexpr const char* font = "DejaVu Sans,Verdana,sans-serif";

/// Text that is valid in DOT and SVG: safe for a line, and characters of XML only.
std::string clean(const std::string& text) {
    std::string clean = common::one_line(text);
    for (const char* no_character : {"\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
        for (std::size_t at = 0; (at = clean.find(no_character, at)) != std::string::npos;)
            clean.replace(at, 3, "\xEF\xBF\xBD");
    }
    return clean;
}

/// Text within an HTML-like label or a tooltip; never empty, which is a syntax error in the first.
std::string html(const std::string& text, const char* backslash = "\\\\") {
    std::string escaped;
    for (const char c : common::xml_escaped(clean(text))) {
        switch (c) {
            case '"':
                escaped += "&quot;";
                break;
            case '\\':  // Graphviz takes "\N" for the node's own name
                escaped += backslash;
                break;
            default:
                escaped += c;
        }
    }
    return escaped.empty() ? "&#160;" : escaped;
}

/// A tooltip in quotes. Graphviz unescapes backslashes several times, a number that differs between
/// releases, so a similar sign replaces them.
std::string tooltip(const std::string& text) {
    return '"' + html(text, "⧵") + '"';
}

std::string painted(const std::string& content, const char* color, int size) {
    return fmt::format(R"(<FONT COLOR="{}" POINT-SIZE="{}">{}</FONT>)", color, size, content);
}

class DotWriter {
  public:
    explicit DotWriter(const Diagram& diagram) : diagram_(diagram) {
        for (const DiagramBlock& block : diagram.blocks)
            colors_.emplace(block.type, type_colors[colors_.size() % std::size(type_colors)]);
    }

    std::string text() {
        out_ << "digraph fenwa {\n"
                "  graph [rankdir=LR, bgcolor=\"white\", nodesep=0.3, ranksep=0.6, pad=0.3];\n"
                "  node [shape=plain, fontname=\""
             << font << "\", fontsize=13, fontcolor=\"" << text_color
             << "\"];\n"
                "  edge [color=\"#4a5663\", penwidth=1.3, arrowsize=0.7];\n\n";
        // Graphviz draws linked blocks from the bottom up.
        for (std::size_t block = diagram_.blocks.size(); block-- > 0;)
            write_block(block);
        for (std::size_t i = 0; i < diagram_.services.size(); ++i)
            write_service(i);
        for (const DiagramConnection& connection : diagram_.connections)
            write_connection(connection);
        for (std::size_t i = 0; i < diagram_.services.size(); ++i) {
            for (const std::size_t block : diagram_.services[i].blocks)
                out_ << "  " << block_node(block) << " -> " << service_node(i)
                     << " [dir=none, style=dashed, penwidth=1, color=\"" << frame_color << "\"];\n";
        }
        write_rows();
        out_ << "}\n";
        return out_.str();
    }

  private:
    void write_block(std::size_t number) {
        const DiagramBlock& block = diagram_.blocks[number];
        out_ << "  " << block_node(number)
             << " [tooltip=" << tooltip(block.name + " (" + block.type + ")")
             << ", label=<\n    <TABLE BORDER=\"1\" CELLBORDER=\"0\" CELLSPACING=\"0\" "
                "CELLPADDING=\"3\" COLOR=\""
             << frame_color << "\" BGCOLOR=\"white\">\n      <TR><TD COLSPAN=\"2\" BGCOLOR=\""
             << colors_.at(block.type) << "\" CELLPADDING=\"6\"><B>" << html(block.name)
             << "</B><BR/>" << painted(html(block.type), faint_color, 11) << "</TD></TR>\n";
        const std::size_t rows = std::max(block.inputs.size(), block.outputs.size());
        for (std::size_t row = 0; row < rows; ++row) {
            out_ << "      <TR>";
            write_port(block.inputs, row, "in", "LEFT");
            write_port(block.outputs, row, "out", "RIGHT");
            out_ << "</TR>\n";
        }
        write_lines(block.lines, faint_color);
        write_lines(block.troubles, trouble_color);
        out_ << "    </TABLE>>];\n";
    }

    void write_lines(const std::vector<std::string>& lines, const char* color) {
        if (lines.empty())
            return;
        out_ << "      <HR/><TR><TD COLSPAN=\"2\" ALIGN=\"LEFT\" BALIGN=\"LEFT\" "
                "CELLPADDING=\"5\">";
        for (const std::string& line : lines)
            out_ << (&line == &lines.front() ? "" : "<BR/>") << painted(html(line), color, 10);
        out_ << "</TD></TR>\n";
    }

    void write_port(const std::vector<DiagramPort>& ports, std::size_t row, const char* side,
                    const char* align) {
        const bool is_input = side == std::string("in");
        if (row >= ports.size()) {
            out_ << "<TD> </TD>";
            return;
        }
        const DiagramPort& port = ports[row];
        out_ << "<TD PORT=\"" << side << row << "\" ALIGN=\"" << align << "\" BALIGN=\"" << align
             << "\">";
        if (is_input)
            out_ << painted(port.passive ? "▹ " : "▸ ", faint_color, 11);
        out_ << painted(html(port.name), text_color, 12);
        if (!port.type.empty())
            out_ << ' ' << painted(html(port.type), faint_color, 10);
        if (!is_input)
            out_ << painted(" ▸", faint_color, 11);
        if (!port.remark.empty())
            out_ << "<BR/>" << painted("<I>" + html(port.remark) + "</I>", faint_color, 10);
        if (!port.value.empty())
            out_ << "<BR/>" << painted("<B>" + html(port.value) + "</B>", value_color, 12);
        out_ << "</TD>";
    }

    void write_service(std::size_t number) {
        const std::string& name = diagram_.services[number].name;
        // The last part is the service's own name, the others are its owner's.
        const std::size_t dot = name.rfind('.');
        const std::string last = dot == std::string::npos ? name : name.substr(dot + 1);
        out_ << "  " << service_node(number)
             << " [shape=box, style=\"rounded,filled\", fillcolor=\"" << service_color
             << "\", color=\"" << frame_color
             << "\", margin=\"0.15,0.08\", tooltip=" << tooltip(name) << ", label=<" << html(last);
        if (dot != std::string::npos)
            out_ << "<BR/>" << painted(html(name.substr(0, dot)), faint_color, 10);
        out_ << ">];\n";
    }

    /// Places unrelated parts beside each other too: only one below the other they would make a
    /// high and narrow picture.
    void write_rows() {
        const std::vector<std::vector<std::size_t>> parts = connected_parts(diagram_);
        const auto rows =
            static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(parts.size()))));
        for (std::size_t i = rows; i < parts.size(); ++i) {
            for (const std::string& last : last_nodes(parts[i - rows])) {
                for (const std::string& first : first_nodes(parts[i]))
                    out_ << "  " << last << " -> " << first << " [style=invis];\n";
            }
        }
    }

    /// The leftmost nodes of a part.
    [[nodiscard]] std::vector<std::string> first_nodes(const std::vector<std::size_t>& part) const {
        std::set<std::size_t> targets;
        for (const DiagramConnection& connection : diagram_.connections)
            targets.insert(connection.to.block);
        return nodes_without(part, targets);
    }

    /// The rightmost ones: its services, or else the blocks that feed no other.
    [[nodiscard]] std::vector<std::string> last_nodes(const std::vector<std::size_t>& part) const {
        std::vector<std::string> nodes;
        for (std::size_t i = 0; i < diagram_.services.size(); ++i) {
            const std::vector<std::size_t>& blocks = diagram_.services[i].blocks;
            if (std::find(part.begin(), part.end(), blocks.front()) != part.end())
                nodes.push_back(service_node(i));
        }
        if (!nodes.empty())
            return nodes;
        std::set<std::size_t> sources;
        for (const DiagramConnection& connection : diagram_.connections)
            sources.insert(connection.from.block);
        return nodes_without(part, sources);
    }

    /// The nodes that are not among the others; the first node for a circle, which has none.
    static std::vector<std::string> nodes_without(const std::vector<std::size_t>& part,
                                                  const std::set<std::size_t>& others) {
        std::vector<std::string> nodes;
        for (const std::size_t block : part) {
            if (others.count(block) == 0)
                nodes.push_back(block_node(block));
        }
        return nodes.empty() ? std::vector<std::string>{block_node(part.front())} : nodes;
    }

    static std::string block_node(std::size_t number) { return "block" + std::to_string(number); }
    static std::string service_node(std::size_t number) {
        return "service" + std::to_string(number);
    }

    void write_connection(const DiagramConnection& connection) {
        const DiagramBlock& from = diagram_.blocks[connection.from.block];
        const DiagramBlock& to = diagram_.blocks[connection.to.block];
        const DiagramPort& output = from.outputs[connection.from.port];
        const DiagramPort& input = to.inputs[connection.to.port];
        out_ << "  " << block_node(connection.from.block) << ":out" << connection.from.port
             << ":e -> " << block_node(connection.to.block) << ":in" << connection.to.port
             << ":w [tooltip="
             << tooltip(from.name + '.' + output.name + " → " + to.name + '.' + input.name)
             << (input.passive ? ", arrowhead=empty" : "") << "];\n";
    }

    const Diagram& diagram_;
    std::ostringstream out_;
    std::map<std::string, const char*> colors_;  ///< of the types
};

}  // namespace

std::string to_dot(const Diagram& diagram) {
    return DotWriter(diagram).text();
}

}  // namespace host
