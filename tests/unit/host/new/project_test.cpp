#include "host/new/project.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <utility>

#include "common/process/exit_code.hpp"
#include "tests/support/temporary_folder.hpp"

namespace {

namespace fs = std::filesystem;
using common::ExitCode;

TEST(NewNames, OfPluginsAreLowerCaseWithSingleDashes) {
    for (const char* name : {"a", "lamp", "lamp-control", "lamp2", "tests"})
        EXPECT_TRUE(host::is_plugin_name(name)) << name;
    for (const char* name : {"", "Lamp", "2lamp", "-lamp", "lamp-", "lamp--control", "lamp_control",
                             "lamp control", "../lamp", "l\xc3\xa4mp", "test", "all", "install"})
        EXPECT_FALSE(host::is_plugin_name(name)) << name;
    EXPECT_TRUE(host::is_plugin_name(std::string(50, 'a')));
    EXPECT_FALSE(host::is_plugin_name(std::string(51, 'a')));
}

TEST(NewNames, OfBlocksBeginWithACapital) {
    for (const char* name : {"A", "Lamp", "LampControl", "Lamp2", "LED"})
        EXPECT_TRUE(host::is_block_name(name)) << name;
    for (const char* name : {"", "lamp", "2Lamp", "Lamp-Control", "Lamp_Control", "Lamp/", "L\n"})
        EXPECT_FALSE(host::is_block_name(name)) << name;
    EXPECT_FALSE(host::is_block_name(std::string(51, 'A')));
}

TEST(NewNames, OfTheFirstBlockComesFromThePlugin) {
    EXPECT_EQ(host::first_block_of("lamp"), "Lamp");
    EXPECT_EQ(host::first_block_of("lamp-control-2"), "LampControl2");
}

class NewProject : public testing::Test {
  protected:
    [[nodiscard]] std::string text_of(const std::string& file) const {
        std::ifstream stream(folder.path() / "lamp" / file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    /// The files of the project, sorted.
    [[nodiscard]] std::set<std::string> files() const {
        std::set<std::string> found;
        for (const auto& entry : fs::recursive_directory_iterator(folder.path())) {
            if (!entry.is_directory())
                found.insert(entry.path().lexically_relative(folder.path()).string());
        }
        return found;
    }
    /// The failure of a command, "none" without one.
    template <class Act>
    static std::pair<ExitCode, std::string> failure_of(Act act) {
        try {
            act();
        } catch (const common::Failure& failure) {
            return {failure.code(), failure.what()};
        }
        return {ExitCode::done, "none"};
    }

    test::TemporaryFolder folder;
    fs::path project = folder.path() / "lamp";
};

TEST_F(NewProject, HasNoPlaceholderLeft) {
    const host::WrittenFiles written = host::write_plugin("lamp", folder.path());
    EXPECT_EQ(written.size(), files().size());
    for (const fs::path& file : written) {
        for (const char* placeholder : {"@NAME@", "@TYPE@", "@FILE@"})
            EXPECT_EQ(text_of(file.lexically_relative(project)).find(placeholder),
                      std::string::npos)
                << file;
    }
}

TEST_F(NewProject, TakesFurtherBlocksInTheirOrder) {
    (void)host::write_plugin("lamp", folder.path());
    (void)host::write_block("LEDRow", project);
    (void)host::write_block("Dimmer2", project);
    EXPECT_EQ(text_of("lib_register.cpp"), R"(#include <fenwa/fenwa.hpp>

#include "blocks/lamp.hpp"
#include "blocks/led_row.hpp"
#include "blocks/dimmer2.hpp"
// fenwa new block: includes

int lib_register_cpp(Fenwa::IRegistry* registry) {
    registry->register_block<blocks::Lamp>("Lamp");
    registry->register_block<blocks::LEDRow>("LEDRow");
    registry->register_block<blocks::Dimmer2>("Dimmer2");
    // fenwa new block: registrations
    return 0;
}
)");
    EXPECT_EQ(files().count("lamp/tests/dimmer2_test.cpp"), 1U);
    EXPECT_NE(text_of("liblamp.toml").find("[types.Dimmer2.keys]"), std::string::npos);
}

TEST_F(NewProject, NeverOverwritesAFile) {
    fs::create_directory(project);
    EXPECT_EQ(failure_of([&] { (void)host::write_plugin("lamp", folder.path()); }),
              std::pair(ExitCode::usage,
                        "'" + project.string() + "' exists already; nothing was written"));
    fs::remove(project);
    fs::create_symlink("nowhere", project);
    EXPECT_EQ(failure_of([&] { (void)host::write_plugin("lamp", folder.path()); }).first,
              ExitCode::usage)
        << "a link that leads nowhere";
    fs::remove(project);

    (void)host::write_plugin("lamp", folder.path());
    const std::string mine = folder.write("lamp/tests/dimmer_test.cpp", "mine");
    const std::string before = text_of("lib_register.cpp");
    EXPECT_EQ(failure_of([&] { (void)host::write_block("Dimmer", project); }),
              std::pair(ExitCode::usage, "'" + mine + "' exists already; nothing was written"));
    EXPECT_EQ(text_of("tests/dimmer_test.cpp"), "mine");
    EXPECT_EQ(text_of("lib_register.cpp"), before);
    EXPECT_FALSE(fs::exists(project / "blocks/dimmer.hpp"));
}

TEST_F(NewProject, WantsAProjectForABlock) {
    EXPECT_EQ(failure_of([&] { (void)host::write_block("Dimmer", folder.path()); }),
              std::pair(ExitCode::usage,
                        "'" + folder.path().string() +
                            "' is not a project of 'fenwa new plugin': it has no lib_register.cpp "
                            "and one libNAME.toml"));
    (void)host::write_plugin("lamp", folder.path());
    folder.write("lamp/lib_register.cpp", "int lib_register_cpp();\n");
    EXPECT_EQ(failure_of([&] { (void)host::write_block("Dimmer", project); }),
              std::pair(ExitCode::usage,
                        "'" + (project / "lib_register.cpp").string() +
                            "' has lost the lines '// fenwa new block: includes' and '// fenwa new "
                            "block: registrations', in front of which the block is registered"));
    EXPECT_FALSE(fs::exists(project / "blocks/dimmer.hpp"));
}

TEST_F(NewProject, LeavesNothingBehindWhenAFileCannotBeWritten) {
    (void)host::write_plugin("lamp", folder.path());
    fs::rename(project / "tests", project / "tests.old");
    folder.write("lamp/tests", "a file where a folder should be");
    const std::set<std::string> before = files();
    EXPECT_EQ(failure_of([&] { (void)host::write_block("Dimmer", project); }).first,
              ExitCode::unavailable);
    EXPECT_EQ(files(), before);
}

}  // namespace
