#include "host/output/inspect_text.hpp"

#include <algorithm>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include "common/text/diagnostics.hpp"
#include "common/text/utf8.hpp"

namespace host {
namespace {

using common::Json;

/// One word of a line with its colour.
struct Cell {
    std::string text;
    std::string_view color = {};
};

/// The lines that are aligned with each other.
enum class Table { ports, exports, keys, settings, needs, failures };

/// One line of a paragraph: its kind, its columns, and a description for a line of its own.
struct Line {
    Table table;
    std::string label;
    std::vector<Cell> cells;
    std::string description = {};  ///< empty for none
};

/// A name as it is, or quotes for an empty one.
std::string word(const Json& value) {
    const std::string text = common::one_line(value.get<std::string>());
    return text.empty() ? "\"\"" : text;
}

std::string json_text(const Json& value) {
    return common::one_line(common::json_line(value));
}

/// A member that may be missing.
std::string text_in(const Json& item, const char* member) {
    return item.contains(member) ? common::one_line(item[member].get<std::string>()) : "";
}

/// Joins the texts that are not empty.
std::string listed(std::initializer_list<std::string> texts) {
    std::string list;
    for (const std::string& text : texts) {
        if (!text.empty())
            list += (list.empty() ? "" : ", ") + text;
    }
    return list;
}

class Paragraph {
  public:
    Paragraph(const Json& type, const common::Palette& colors) : colors_(colors) {
        for (const Json& port : type["inputs"])
            add_port("input", port, {type_of(port), {port["triggers"] ? "" : "does not trigger"}});
        for (const Json& port : type["outputs"])
            add_port("output", port, {type_of(port)});
        for (const Json& port : type["event_ports"])
            add_port("event", port, {});
        for (const Json& port : type["terminated_inputs"])
            add_port("terminated", port,
                     {type_of(port), {"starts with " + json_text(port["value"])}});
        for (const Json& object : type["exports"])
            add_line(Table::exports, "exports", object,
                     {{word(object["path"])}, {word(object["interface"])}});
        for (const Json& key : type["keys"])
            add_line(Table::keys, "key", key, {{word(key["key"])}, type_of(key), demand_of(key)});
        for (const auto& [key, value] : type["settings"].items())
            add_line(Table::settings, "setting", value,
                     {{common::one_line(key)}, {json_text(value)}});
        add_needs(type);
        for (const Json& failure : type["failures"])
            add_failure(failure);
        if (lines_.empty())
            lines_.push_back({Table::ports, "", {{"no ports, no keys", colors_.dim}}});
        title_ = word(type["type"]);
        description_ = text_in(type, "description");
    }

    [[nodiscard]] std::string text() const {
        std::string all = paint({title_, colors_.bold}) + '\n';
        if (!description_.empty())
            all += "  " + paint({description_, colors_.dim}) + '\n';
        std::string last_label;
        for (const Line& line : lines_) {
            // Each kind is named once.
            all += label(line.label == last_label ? "" : line.label) + columns(line) + '\n';
            if (!line.description.empty())
                all += label("") + "  " + paint({line.description, colors_.dim}) + '\n';
            last_label = line.label;
        }
        return all;
    }

  private:
    [[nodiscard]] std::string label(const std::string& text) const {
        constexpr std::size_t label_width = 12;
        return "  " + paint({text, colors_.dim}) + std::string(label_width - text.size(), ' ');
    }

    [[nodiscard]] std::string columns(const Line& line) const {
        const std::vector<std::size_t> widths = column_widths(line.table);
        std::string text;
        std::size_t indent = 0;
        for (std::size_t i = 0; i < line.cells.size(); ++i) {
            const Cell& cell = line.cells[i];
            if (!cell.text.empty())
                text += std::string(std::exchange(indent, 0), ' ') + paint(cell);
            // None after the last one.
            indent += widths[i] - common::code_points(cell.text) + 2;
        }
        return text;
    }

    [[nodiscard]] std::string paint(const Cell& cell) const {
        if (cell.color.empty() || cell.text.empty())
            return cell.text;
        return std::string(cell.color) + cell.text + std::string(colors_.reset);
    }

    [[nodiscard]] Cell type_of(const Json& item) const {
        return {word(item["type"]), colors_.cyan};
    }

    [[nodiscard]] Cell demand_of(const Json& key) const {
        const std::string live = key["live"] ? ", live" : "";
        if (key["required"])
            return {"required" + live, colors_.yellow};
        return {"default " + json_text(key["default"]) + live};
    }

    void add_port(const char* label, const Json& port, std::vector<Cell> cells) {
        cells.insert(cells.begin(), {word(port["name"])});
        add_line(Table::ports, label, port, std::move(cells));
    }

    void add_line(Table table, const char* label, const Json& item, std::vector<Cell> cells) {
        if (item.is_object() && item.contains("when")) {
            cells.resize(std::max<std::size_t>(cells.size(), 3));
            cells.push_back({condition(item), colors_.dim});
        }
        lines_.push_back(
            {table, label, std::move(cells), item.is_object() ? item_text(item) : std::string()});
    }

    void add_needs(const Json& type) {
        if (type.contains("ascending")) {
            for (const Json& keys : type["ascending"]) {
                std::string order;
                for (const Json& key : keys)
                    order += (order.empty() ? "" : " <= ") + word(key);
                add_line(Table::needs, "order", Json(), {{order}});
            }
        }
        if (const std::string name = text_in(type, "bus_name"); !name.empty())
            add_line(Table::needs, "bus name", Json(), {{name}});
        if (const std::string effect = text_in(type, "one_per_host"); !effect.empty())
            add_line(Table::needs, "one a host", Json(), {{"with two, " + effect}});
    }

    void add_failure(const Json& failure) {
        // With a boolean toggled a block may well refuse.
        const bool is_note = failure.contains("when") && failure["kind"] == "threw";
        std::string text = word(failure["text"]);
        if (failure.contains("when"))
            text += ", " + condition(failure);
        add_line(Table::failures, is_note ? "note" : "error", Json(),
                 {{text, is_note ? colors_.dim : colors_.red}});
    }

    static std::string condition(const Json& item) {
        std::string text;
        for (const auto& [key, value] : item["when"].items())
            text += (text.empty() ? "when " : " and ") + common::one_line(key) + " = " +
                    json_text(value);
        return text;
    }

    [[nodiscard]] std::vector<std::size_t> column_widths(Table table) const {
        std::vector<std::size_t> widths;
        for (const Line& line : lines_) {
            if (line.table != table)
                continue;
            widths.resize(std::max(widths.size(), line.cells.size()));
            for (std::size_t i = 0; i < line.cells.size(); ++i)
                widths[i] = std::max(widths[i], common::code_points(line.cells[i].text));
        }
        return widths;
    }

    const common::Palette& colors_;
    std::string title_;
    std::string description_;
    std::vector<Line> lines_;
};

}  // namespace

std::string range_text(const Json& range) {
    const auto bound = [&range](const char* name, const char* before, const char* after) {
        return range.contains(name) ? before + json_text(range[name]) + after : std::string();
    };
    if (range.contains("min") && range.contains("max"))
        return bound("min", "", " to ") + bound("max", "", "");
    return listed({bound("min", "", " or more"), bound("above", "above ", ""),
                   bound("max", "", " or less"), bound("below", "below ", "")});
}

std::string item_text(const Json& item) {
    const std::string description = text_in(item, "description");
    const std::string unconnected = text_in(item, "unconnected");
    const std::string details =
        listed({item.contains("range") ? range_text(item["range"]) : "", text_in(item, "unit"),
                item.contains("optional") ? "may stay unconnected" : "",
                unconnected.empty() ? "" : "unconnected: " + unconnected});
    if (description.empty() || details.empty())
        return description + details;
    return description + " (" + details + ')';
}

std::string types_as_text(const Json& types, const common::Palette& colors) {
    std::string all;
    for (const Json& type : types)
        all += (all.empty() ? "" : "\n") + Paragraph(type, colors).text();
    return all;
}

}  // namespace host
