// Runs, compiles or checks every code block of the guide, page by page, as a reader would who goes
// through a page from its beginning to its end.
#include <gmock/gmock.h>

#include <fstream>
#include <set>
#include <sstream>

#include "common/bus/private_bus.hpp"
#include "tests/support/json_printing.hpp"
#include "tests/support/pattern.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temporary_folder.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;

const fs::path project = FENWA_PROJECT;

/// Every page: the README and the folder of the guide.
std::vector<std::string> pages() {
    std::vector<std::string> names{"README.md"};
    for (const fs::directory_entry& entry : fs::directory_iterator(project / "docs")) {
        if (entry.path().extension() == ".md")
            names.push_back("docs/" + entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// A fenced block of a page.
struct CodeBlock {
    std::size_t line = 0;  ///< where its text begins, from 1
    std::string language;  ///< behind the opening fence; may be empty
    std::string file;      ///< the file that the line before it names; may be empty
    std::string text;
};

/// A page of the guide.
struct MarkdownPage {
    std::vector<CodeBlock> blocks;
    std::vector<std::string> links;  ///< what it leads to within the project, without anchors
};

constexpr std::string_view fence = "```";

/// For the commands of one block, which may build a project.
constexpr std::chrono::seconds build_limit{120};

void add_links(const std::string& line, std::vector<std::string>& links) {
    static const Pattern link(R"(\]\(([^)#:]+)(#[^)]*)?\))");
    for (const Groups& found : link.find_all(line))
        links.push_back(found[1]);
}

/// The file in "`average.cpp`: the mean …", which may be in a folder, empty where the line begins
/// otherwise.
std::string named_file(const std::string& line) {
    static const Pattern name("^`([A-Za-z0-9_/-]+\\.[a-z]+)`.*");
    const Groups found = name.match(line);
    return found.empty() ? std::string{} : found[1];
}

MarkdownPage read_page(const fs::path& path) {
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    MarkdownPage page;
    CodeBlock* open = nullptr;
    std::string last_text;
    std::size_t number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.starts_with(fence) && open == nullptr) {
            page.blocks.push_back(
                {number + 1, line.substr(fence.size()), named_file(last_text), {}});
            open = &page.blocks.back();
        } else if (line.starts_with(fence)) {
            open = nullptr;
            last_text.clear();
        } else if (open != nullptr) {
            open->text += line + '\n';
        } else {
            add_links(line, page.links);
            if (!line.empty())
                last_text = line;
        }
    }
    EXPECT_EQ(open, nullptr) << path << ": a fence is not closed";
    return page;
}

class GuideTest : public ::testing::TestWithParam<std::string> {
  protected:
    GuideTest() {
        // What the page's commands find where the reader stands: in the project's folder, built.
        for (const char* name : {"include", "script", "examples", "docs"})
            fs::create_symlink(project / name, here() / name);
        fs::create_directories(here() / "build/release");
        fs::create_symlink(FENWA_BINARIES, here() / "build/release/bin");
        EXPECT_TRUE(camera_.wait_for_text("ready on")) << camera_.err();
    }

    [[nodiscard]] fs::path here() const { return folder_.path(); }

    void check(const CodeBlock& block) {
        if (!block.file.empty())
            folder_.write(block.file, block.text);
        if (block.language == "sh")
            run(block.text);
        else if (block.file.find('/') != std::string::npos)
            EXPECT_NE(block.language, "") << "a file of a project that commands of the page build";
        else if (block.file.starts_with("lib"))
            check_data_file(fs::path(block.file).replace_extension(".so"));
        else if (block.language == "toml")
            check_graph(block);
        else if (block.language == "cpp")
            EXPECT_FALSE(block.file.empty()) << "nobody compiles a file without a name";
        else if (block.language == "json")
            EXPECT_TRUE(nlohmann::json::accept(block.text));
        else if (block.language == "mermaid")
            check_diagram(block.text);
        else
            EXPECT_EQ(block.language, "text") << "no test knows what to do with this block";
    }

  private:
    /// A block of nothing but the project's own scripts is what runs this test: they have to be
    /// there and to be programs.
    static bool only_scripts(const std::string& text) {
        static const Pattern script("(script/[a-z-]+)( +#.*)?");
        std::istringstream lines(text);
        bool only = true;
        for (std::string line; std::getline(lines, line);) {
            const Groups match = script.match(line);
            if (match.empty()) {
                only = false;
                continue;
            }
            const fs::perms permissions = fs::status(project / match[1]).permissions();
            EXPECT_NE(permissions & fs::perms::owner_exec, fs::perms::none) << line;
        }
        return only;
    }

    void run(const std::string& text) {
        if (only_scripts(text))
            return;
        const std::string script = folder_.write("commands.sh", text);
        // What the page's readers have installed, for pages that build something against it.
        const fs::path prefix = here() / "installed";
        if ((text.find("cmake ") != text.npos || text.find("pkg-config ") != text.npos) &&
            !fs::exists(prefix)) {
            const Ended installed =
                run_program({"cmake", "--install", FENWA_BUILD, "--prefix", prefix.string()});
            EXPECT_EQ(installed.code, 0) << installed.err;
        }
        // What the page leaves in the background ends with its block.
        const Ended ended = run_program(
            {"/bin/bash", "-c",
             "cd \"$1\"; trap 'kill $(jobs -p) 2>/dev/null || true; wait' EXIT; set -e; . "
             "./commands.sh",
             "bash", here().string()},
            {{"PATH", std::string(FENWA_SHIMS) + ':' + FENWA_BINARIES + ':' + getenv("PATH")},
             {"CMAKE_PREFIX_PATH", prefix.string()},
             {"CMAKE_CXX_COMPILER_LAUNCHER", FENWA_COMPILER_LAUNCHER},
             {"PKG_CONFIG_PATH", (prefix / FENWA_LIBDIR / "pkgconfig").string()},
             {"FENWA_PROGRAM", std::string(FENWA_BINARIES) + "/fenwa"},
             {"FENWA_CAMERA_PROGRAM", std::string(FENWA_BINARIES) + "/fenwa-camera"},
             {"DBUS_SYSTEM_BUS_ADDRESS", bus_.address()},
             {"DBUS_SESSION_BUS_ADDRESS", bus_.address()}},
            build_limit);
        EXPECT_EQ(ended.code, 0) << ended.out << ended.err;
    }

    void check_graph(const CodeBlock& block) {
        const std::string file = block.file.empty() ? "graph.toml" : block.file;
        folder_.write(file, block.text);
        const Ended ended =
            run_program({std::string(FENWA_BINARIES) + "/fenwa", "check", "--deny-warnings",
                         "--plugin-dir", here().string(), (here() / file).string()});
        EXPECT_EQ(ended.code, 0) << ended.err;
    }

    /// That the data file of a plug-in, which the page has built, describes what the plug-in has.
    void check_data_file(const fs::path& plugin) {
        const Ended ended = run_program(
            {std::string(FENWA_BINARIES) + "/fenwa", "inspect", (here() / plugin).string()});
        EXPECT_EQ(ended.code, 0);
        EXPECT_EQ(ended.err, "");
    }

    /// That a sequence diagram names its participants before they speak, and that there is no line
    /// of another form.
    static void check_diagram(const std::string& text) {
        static const Pattern participant("participant ([A-Z]) as .+");
        static const Pattern message("([A-Z])(->>|-->>|-\\)|--\\))([A-Z]): .+");
        static const Pattern other("(Note over [A-Z]: .+|loop .+|alt .+|else .+|end)");
        static const Pattern transition("(\\[\\*\\]|\\w+) --> (\\[\\*\\]|\\w+)(: .+)?");
        std::istringstream lines(text);
        std::string line;
        std::getline(lines, line);
        const bool sequence = line == "sequenceDiagram";
        EXPECT_TRUE(sequence || line == "stateDiagram-v2") << line;
        std::set<std::string> known;
        while (std::getline(lines, line)) {
            line.erase(0, line.find_first_not_of(' '));
            if (!sequence) {
                EXPECT_FALSE(transition.match(line).empty()) << line;
            } else if (const Groups named = participant.match(line); !named.empty()) {
                known.insert(named[1]);
            } else if (const Groups sent = message.match(line); !sent.empty()) {
                EXPECT_TRUE(known.count(sent[1]) == 1 && known.count(sent[3]) == 1) << line;
            } else {
                EXPECT_FALSE(other.match(line).empty()) << line;
            }
        }
    }

    TemporaryFolder folder_;
    common::PrivateBus bus_;
    Process camera_{
        {std::string(FENWA_BINARIES) + "/fenwa-camera", "run", "--bus", bus_.address()}};
};

TEST_P(GuideTest, SaysWhatIsTrue) {
    const fs::path path = project / GetParam();
    const MarkdownPage page = read_page(path);
    for (const std::string& link : page.links) {
        const fs::path target = (path.parent_path() / link).lexically_normal();
        EXPECT_TRUE(fs::exists(target)) << "leads nowhere: " << link;
        // What an installation has of the project.
        EXPECT_THAT(
            (target.lexically_relative(project).begin())->string(),
            testing::AnyOf("README.md", "CONTRIBUTING.md", "CHANGELOG.md", "docs", "examples"))
            << "leads nowhere where it is installed: " << link;
    }
    for (const CodeBlock& block : page.blocks) {
        SCOPED_TRACE(GetParam() + ':' + std::to_string(block.line));
        check(block);
    }
}

INSTANTIATE_TEST_SUITE_P(Page, GuideTest, ::testing::ValuesIn(pages()), [](const auto& page) {
    std::string name = page.param;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return std::isalnum(c) == 0; }, '_');
    return name;
});

}  // namespace
}  // namespace test
