#include "host/plugin/type_data.hpp"

#include <fmt/format.h>

#include <cmath>
#include <system_error>
#include <utility>

#include "common/process/exit_code.hpp"
#include "common/toml/document.hpp"

namespace host {
namespace {

namespace fs = std::filesystem;

using common::Diagnostics;
using common::kind_of;
using common::TableReader;
using common::TomlEntry;

/// Reads the types of one data file; each mistake is an error in `mistakes`.
class DataReader {
  public:
    DataReader(std::string file, Diagnostics& mistakes)
        : file_(std::move(file)), mistakes_(mistakes) {}

    [[nodiscard]] std::map<std::string, TypeData> read(const toml::table& root) const {
        std::map<std::string, TypeData> types;
        TableReader reader(root, "the data file", mistakes_);
        for (const auto& [name, location, table] : tables_in(reader, "types", "the type"))
            types.emplace(name, type(name, location, *table));
        reader.report_unknown_keys();
        return types;
    }

  private:
    struct NamedTable {
        std::string name;
        common::SourceLocation location;
        const toml::table* table;
    };

    /// The tables in a table.
    [[nodiscard]] std::vector<NamedTable> tables_in(TableReader& reader, const char* key,
                                                    const char* what) const {
        std::vector<NamedTable> tables;
        const toml::table* const outer = reader.table(key);
        if (outer == nullptr)
            return tables;
        for (const TomlEntry& entry : common::in_file_order(*outer)) {
            if (const toml::table* const inner = entry.value->as_table())
                tables.push_back({entry.key, entry.location, inner});
            else
                mistakes_.error(entry.location, fmt::format("{} '{}' must be a table, not {}", what,
                                                            entry.key, kind_of(*entry.value)));
        }
        return tables;
    }

    [[nodiscard]] TypeData type(const std::string& name, common::SourceLocation location,
                                const toml::table& table) const {
        TypeData data;
        data.file = file_;
        data.location = location;
        const std::string what = fmt::format("[types.{}]", name);
        TableReader reader(table, what, mistakes_);
        data.description = reader.string("description").value_or("");
        data.one_per_host = reader.string("one_per_host").value_or("");
        data.bus_name = reader.string("bus_name").value_or("");
        data.ascending = ascending(reader, what);
        data.keys = items(reader, "keys", "the key", false);
        data.inputs = items(reader, "inputs", "the input", true);
        data.outputs = items(reader, "outputs", "the output", false);
        data.event_ports = items(reader, "event_ports", "the event port", false);
        reader.report_unknown_keys();
        return data;
    }

    [[nodiscard]] std::vector<std::vector<std::string>> ascending(TableReader& reader,
                                                                  const std::string& what) const {
        std::vector<std::vector<std::string>> lists;
        const toml::array* const array = reader.array("ascending");
        if (array == nullptr)
            return lists;
        for (const toml::node& element : *array) {
            std::vector<std::string>& list = lists.emplace_back();
            const toml::array* const keys = element.as_array();
            bool is_right = keys != nullptr;
            for (std::size_t i = 0; is_right && i < keys->size(); ++i) {
                const auto* const key = keys->get(i)->as_string();
                is_right = key != nullptr;
                if (is_right)
                    list.push_back(key->get());
            }
            if (is_right)
                continue;
            lists.pop_back();
            mistakes_.error(
                common::position(element),
                fmt::format("each of 'ascending' of {} must be an array of keys", what));
        }
        return lists;
    }

    [[nodiscard]] ItemsData items(TableReader& type, const char* list, const char* what,
                                  bool is_input) const {
        ItemsData items;
        for (const auto& [name, location, table] : tables_in(type, list, what)) {
            TableReader reader(*table, fmt::format("{} '{}'", what, name), mistakes_);
            ItemData item;
            item.location = location;
            item.description = reader.string("description").value_or("");
            item.unit = reader.string("unit").value_or("");
            item.range = range(reader, fmt::format("{} '{}'", what, name));
            if (is_input) {
                item.optional = reader.boolean("optional").value_or(false);
                item.unconnected = reader.string("unconnected").value_or("");
            }
            reader.report_unknown_keys();
            items.emplace(name, std::move(item));
        }
        return items;
    }

    [[nodiscard]] Range range(TableReader& reader, const std::string& what) const {
        const auto bound = [&](std::string_view key) {
            const std::optional<double> number = reader.number(key);
            if (!number || std::isfinite(*number))
                return number;
            mistakes_.error(reader.location(key),
                            fmt::format("'{}' of {} must be finite", key, what));
            return std::optional<double>();
        };
        const Range range{bound("min"), bound("above"), bound("max"), bound("below")};
        const std::optional<double> low = range.min ? range.min : range.above;
        const std::optional<double> high = range.max ? range.max : range.below;
        if (low && high && *low > *high)
            mistakes_.error(reader.location(),
                            fmt::format("no number is in the range of {}", what));
        return range;
    }

    std::string file_;
    Diagnostics& mistakes_;
};

/// The types of a data file; empty, with an error, if it cannot be parsed.
std::optional<std::map<std::string, TypeData>> read_file(const fs::path& file,
                                                         Diagnostics& mistakes) {
    try {
        // Opening a FIFO or a device could block for ever.
        if (!fs::is_regular_file(file)) {
            mistakes.error({}, "not a regular file");
            return std::nullopt;
        }
        const std::optional<toml::table> root = common::read_toml(file.string(), mistakes);
        if (!root)
            return std::nullopt;
        // A graph may have the name of the plug-in that it uses.
        if (root->contains("blocks"))
            return std::map<std::string, TypeData>();
        return DataReader(file.string(), mistakes).read(*root);
    } catch (const common::Failure& failure) {
        mistakes.error({}, failure.what());
    } catch (const fs::filesystem_error& error) {
        mistakes.error({}, error.code().message());
    }
    return std::nullopt;
}

}  // namespace

bool Range::contains(double value) const noexcept {
    return (!min || value >= *min) && (!above || value > *above) && (!max || value <= *max) &&
           (!below || value < *below);
}

std::optional<std::string> expanded(
    std::string text,
    const std::function<std::optional<std::string>(const std::string& key)>& value_of) {
    for (std::size_t open = 0; (open = text.find('{', open)) != std::string::npos;) {
        const std::size_t close = text.find('}', open);
        if (close == std::string::npos)
            return std::nullopt;
        const std::optional<std::string> value = value_of(text.substr(open + 1, close - open - 1));
        if (!value)
            return std::nullopt;
        text.replace(open, close + 1 - open, *value);
        open += value->size();
    }
    return text;
}

void TypeCatalog::read(const fs::path& plugin, Diagnostics& diagnostics) {
    fs::path file = plugin.lexically_normal();
    file.replace_extension(".toml");
    std::error_code ignored;
    if (plugin.extension() == ".toml" || !fs::exists(file, ignored))
        return;
    Diagnostics& warnings = diagnostics.other_file(file.string());
    Diagnostics mistakes(file.string());
    // A plug-in works without its data: no mistake in it ends a check or a run.
    mistakes.listen([&warnings](const Diagnostics::Entry& entry) {
        warnings.warning(entry.location, entry.text, entry.help);
    });
    std::optional<std::map<std::string, TypeData>> types = read_file(file, mistakes);
    if (!types) {
        incomplete_ = true;
    } else {
        for (auto& [name, data] : *types) {
            const auto [known, is_new] = types_.try_emplace(name, std::move(data));
            if (!is_new)
                mistakes.error(data.location,
                               fmt::format("the block type '{}' is described in '{}' already", name,
                                           known->second.file));
        }
    }
    warnings.take_source(mistakes);
    warnings.count_more(Diagnostics::Severity::warning,
                        mistakes.not_kept(Diagnostics::Severity::error));
}

const TypeData* TypeCatalog::find(const std::string& type) const {
    const auto found = types_.find(type);
    return found == types_.end() ? nullptr : &found->second;
}

}  // namespace host
