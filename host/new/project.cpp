#include "host/new/project.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>
#include <utility>

#include "common/process/exit_code.hpp"
#include "host/new/templates.hpp"

namespace host {
namespace {

namespace fs = std::filesystem;
using common::ExitCode;
using common::Failure;

constexpr std::size_t longest_name = 50;
constexpr std::string_view registrations = "lib_register.cpp";
constexpr std::string_view include_mark = "// fenwa new block: includes";
constexpr std::string_view registration_mark = "    // fenwa new block: registrations";

// As of ASCII, whatever the locale.
bool is_lower(char c) {
    return c >= 'a' && c <= 'z';
}
bool is_capital(char c) {
    return c >= 'A' && c <= 'Z';
}
bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
char to_capital(char c) {
    return is_lower(c) ? static_cast<char>(c - 'a' + 'A') : c;
}
char to_lower(char c) {
    return is_capital(c) ? static_cast<char>(c - 'A' + 'a') : c;
}

/// "LampControl" as "lamp_control", and "LEDLamp" as "led_lamp".
std::string file_name_of(const std::string& type) {
    std::string file;
    for (std::size_t i = 0; i < type.size(); ++i) {
        const bool begins_word =
            i > 0 && is_capital(type[i]) &&
            (!is_capital(type[i - 1]) || (i + 1 < type.size() && is_lower(type[i + 1])));
        if (begins_word)
            file += '_';
        file += to_lower(type[i]);
    }
    return file;
}

void replace_all(std::string& text, std::string_view what, std::string_view with) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
        text.replace(at, what.size(), with);
}

/// What the templates are filled in with.
struct Names {
    std::string plugin;
    std::string type;

    [[nodiscard]] std::string fill(std::string_view text) const {
        std::string filled(text);
        replace_all(filled, "@NAME@", plugin);
        replace_all(filled, "@TYPE@", type);
        replace_all(filled, "@FILE@", file_name_of(type));
        return filled;
    }
};

struct File {
    fs::path path;
    std::string text;
};

void add_files(std::vector<File>& files, std::span<const Template> templates, const Names& names,
               const fs::path& folder) {
    for (const Template& each : templates)
        files.push_back({folder / names.fill(each.path), names.fill(each.text)});
}

/// Puts a line in front of the line that begins with `mark`. @returns false if there is none.
bool add_line(std::string& text, std::string_view mark, const std::string& line) {
    const std::size_t at = text.find(mark);
    if (at == std::string::npos)
        return false;
    text.insert(at, line + '\n');
    return true;
}

/// Registers a block in the text of the entry point. @returns false if it has lost its marks.
bool register_block(std::string& text, const Names& names) {
    return add_line(text, include_mark, names.fill("#include \"blocks/@FILE@.hpp\"")) &&
           add_line(text, registration_mark,
                    names.fill("    registry->register_block<blocks::@TYPE@>(\"@TYPE@\");"));
}

std::string read_file(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(file)), {});
    if (!file)
        throw Failure(common::exit_code_of_unreadable(errno),
                      fmt::format("cannot read '{}': {}", path.string(), std::strerror(errno)));
    return text;
}

/// Writes a file; takes what was written back if it cannot be finished.
void write_file(const File& file, std::ios::openmode mode) {
    std::ofstream stream(file.path, std::ios::binary | mode);
    stream << file.text;
    if (!stream.flush())
        throw Failure(ExitCode::unavailable, fmt::format("cannot write '{}': {}",
                                                         file.path.string(), std::strerror(errno)));
}

/// Files and folders that were made, and go again unless all of them could be.
class NewFiles {
  public:
    NewFiles() = default;
    NewFiles(const NewFiles&) = delete;
    NewFiles& operator=(const NewFiles&) = delete;
    ~NewFiles() {
        std::error_code ignored;
        for (auto path = made_.rbegin(); path != made_.rend(); ++path)
            fs::remove(*path, ignored);
    }

    /// Writes files, none of which exists.
    void write(const std::vector<File>& files) {
        for (const File& file : files) {
            make_folder(file.path.parent_path());
            made_.push_back(file.path);
            write_file(file, std::ios::trunc);
        }
    }
    void keep() { made_.clear(); }

  private:
    void make_folder(const fs::path& folder) {
        std::error_code error;
        if (folder.empty() || fs::exists(folder, error))
            return;
        make_folder(folder.parent_path());
        if (!fs::create_directory(folder, error))
            throw Failure(ExitCode::unavailable,
                          fmt::format("cannot make '{}': {}", folder.string(), error.message()));
        made_.push_back(folder);
    }

    std::vector<fs::path> made_;
};

void refuse_existing(const fs::path& path) {
    std::error_code error;
    if (fs::symlink_status(path, error).type() != fs::file_type::not_found)
        throw Failure(ExitCode::usage,
                      fmt::format("'{}' exists already; nothing was written", path.string()));
}

WrittenFiles paths_of(const std::vector<File>& files) {
    WrittenFiles paths;
    for (const File& file : files)
        paths.push_back(file.path);
    return paths;
}

/// The name of the plug-in whose project a folder holds: that of its only data file.
std::string plugin_in(const fs::path& project) {
    std::error_code error;
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(project, error)) {
        const std::string stem = entry.path().stem().string();
        if (entry.path().extension() == ".toml" && stem.starts_with("lib"))
            names.push_back(stem.substr(3));
    }
    if (names.size() != 1 || !fs::exists(project / registrations, error))
        throw Failure(
            ExitCode::usage,
            fmt::format("'{}' is not a project of 'fenwa new plugin': it has no {} and one "
                        "libNAME.toml",
                        project.string(), registrations));
    return names.front();
}

}  // namespace

bool is_plugin_name(const std::string& name) {
    // Targets that CMake makes itself, in one generator or another.
    constexpr std::array reserved{"all",     "clean",         "edit-cache", "help",
                                  "install", "list-install",  "package",    "package-source",
                                  "rebuild", "rebuild-cache", "test"};
    return !name.empty() && name.size() <= longest_name && is_lower(name.front()) &&
           name.back() != '-' && name.find("--") == std::string::npos &&
           std::ranges::all_of(name,
                               [](char c) { return is_lower(c) || is_digit(c) || c == '-'; }) &&
           std::ranges::find(reserved, name) == reserved.end();
}

bool is_block_name(const std::string& name) {
    return !name.empty() && name.size() <= longest_name && is_capital(name.front()) &&
           std::ranges::all_of(name,
                               [](char c) { return is_lower(c) || is_capital(c) || is_digit(c); });
}

std::string first_block_of(const std::string& plugin) {
    std::string type;
    bool begins_word = true;
    for (const char c : plugin) {
        if (c != '-')
            type += begins_word ? to_capital(c) : c;
        begins_word = c == '-';
    }
    return type;
}

WrittenFiles write_plugin(const std::string& name, const fs::path& parent) {
    const fs::path folder = parent / name;
    refuse_existing(folder);
    const Names names{name, first_block_of(name)};
    std::vector<File> files;
    add_files(files, plugin_templates(), names, folder);
    for (File& file : files) {
        if (file.path.filename() == registrations)
            register_block(file.text, names);
        else if (file.path.filename() == "lib" + name + ".toml")
            file.text += names.fill(block_data_template());
    }
    add_files(files, block_templates(), names, folder);
    NewFiles written;
    written.write(files);
    written.keep();
    return paths_of(files);
}

WrittenFiles write_block(const std::string& type, const fs::path& project) {
    const std::string plugin = plugin_in(project);
    const Names names{plugin, type};
    std::vector<File> files;
    add_files(files, block_templates(), names, project);
    for (const File& file : files)
        refuse_existing(file.path);
    File entry{project / registrations, read_file(project / registrations)};
    if (!register_block(entry.text, names))
        throw Failure(ExitCode::usage,
                      fmt::format("'{}' has lost the lines '{}' and '{}', in front of which the "
                                  "block is registered",
                                  entry.path.string(), include_mark,
                                  registration_mark.substr(registration_mark.find('/'))));
    const File data{project / ("lib" + plugin + ".toml"), names.fill(block_data_template())};

    NewFiles written;
    written.write(files);
    write_file(data, std::ios::app);
    write_file(entry, std::ios::trunc);
    written.keep();
    files.push_back(entry);
    files.push_back(data);
    return paths_of(files);
}

}  // namespace host
