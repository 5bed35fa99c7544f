#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/text/diagnostics.hpp"

namespace host {

/// The numbers that a value may have; a missing bound is open.
struct Range {
    std::optional<double> min;
    std::optional<double> above;  ///< the value is greater
    std::optional<double> max;
    std::optional<double> below;  ///< the value is less

    /// False for NaN if there is a bound.
    [[nodiscard]] bool contains(double value) const noexcept;
};

/// A key or port of a block type, as the data file of its plug-in describes it.
struct ItemData {
    common::SourceLocation location;
    std::string description;  ///< may be empty
    std::string unit;         ///< may be empty
    Range range;
    bool optional = false;    ///< an input that may stay unconnected
    std::string unconnected;  ///< the effect on the block of an unconnected input; may be empty
};

/// A text with "{KEY}" replaced by `value_of(KEY)`; empty if one of the values is empty, or a brace
/// is not closed.
[[nodiscard]] std::optional<std::string> expanded(
    std::string text,
    const std::function<std::optional<std::string>(const std::string& key)>& value_of);

using ItemsData = std::map<std::string, ItemData>;

/// A block type, as the data file of its plug-in describes it.
struct TypeData {
    std::string file;  ///< the data file
    common::SourceLocation location;
    std::string description;   ///< may be empty
    std::string one_per_host;  ///< the effect of a second such block in a host; empty for none
    /// The bus name under which a service calls the block, a key in braces standing for its value:
    /// "com.example.Lamp{number}". Empty for none.
    std::string bus_name;
    /// Keys whose values do not fall from one key of a list to the next.
    std::vector<std::vector<std::string>> ascending;
    ItemsData keys;
    ItemsData inputs;  ///< also those that the host provides
    ItemsData outputs;
    ItemsData event_ports;
};

/// The data files of plug-ins: "NAME.toml" beside "NAME.so".
class TypeCatalog {
  public:
    /// Adds the types of a plug-in's data file, if there is one. Each mistake in it becomes a
    /// warning of the data file, in `diagnostics.other_file`. The first file that describes a type
    /// counts.
    /// @param plugin the plug-in's file.
    void read(const std::filesystem::path& plugin, common::Diagnostics& diagnostics);

    /// The data of a type; null for none.
    [[nodiscard]] const TypeData* find(const std::string& type) const;
    [[nodiscard]] const std::map<std::string, TypeData>& types() const noexcept { return types_; }
    /// Whether a file could not be parsed, so that data of its types is missing.
    [[nodiscard]] bool incomplete() const noexcept { return incomplete_; }

  private:
    std::map<std::string, TypeData> types_;
    bool incomplete_ = false;
};

}  // namespace host
