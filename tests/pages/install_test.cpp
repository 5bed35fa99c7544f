#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/pattern.hpp"
#include "tests/support/process.hpp"
#include "tests/support/temporary_folder.hpp"

namespace test {
namespace {

namespace fs = std::filesystem;

/// What is wrong with the paths in which programs and libraries of a folder look for libraries, a
/// line each: an entry that is empty stands for the current directory, and so does a relative one.
std::string loose_library_paths(const fs::path& folder, std::size_t& looked_at) {
    std::string mistakes;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file() || entry.is_symlink())
            continue;
        std::array<char, 4> magic{};
        std::ifstream(entry.path(), std::ios::binary).read(magic.data(), magic.size());
        if (std::string_view(magic.data(), magic.size()) !=
            "\x7f"
            "ELF")
            continue;
        const Ended ended = run_program({"readelf", "--dynamic", "--wide", entry.path().string()});
        EXPECT_EQ(ended.code, 0) << entry.path() << ended.err;
        ++looked_at;
        static const Pattern runpath(R"(\((?:RPATH|RUNPATH)\)[^\n]*\[([^\n]*)\])");
        const Groups found = runpath.find(ended.out);
        if (found.empty())
            continue;
        std::istringstream paths(found[1]);
        for (std::string path; std::getline(paths, path, ':');) {
            if (!path.starts_with("/") && !path.starts_with("$ORIGIN"))
                mistakes += entry.path().string() + ": [" + found[1] + "]\n";
        }
    }
    return mistakes;
}

TEST(LibraryPath, InTheBuildTreeHasNoEntryThatIsEmptyOrRelative) {
    std::size_t looked_at = 0;
    EXPECT_EQ(loose_library_paths(FENWA_BINARIES, looked_at), "");
    EXPECT_GE(looked_at, 5U);
}

/// What `cmake --install` puts into an empty folder.
class Install : public testing::Test {
  protected:
    void SetUp() override {
        const Ended ended =
            run_program({"cmake", "--install", FENWA_BUILD, "--prefix", folder_.path().string()});
        ASSERT_EQ(ended.code, 0) << ended.err;
    }

    [[nodiscard]] const fs::path& prefix() const { return folder_.path(); }

  private:
    TemporaryFolder folder_;
};

TEST_F(Install, BringsTheProgramsTheirPagesCompletionAndPolicy) {
    std::vector<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(prefix())) {
        const std::string name = entry.path().lexically_relative(prefix()).string();
        // These are many, or have a version or the kind of build in their names.
        static const Pattern other("(include/|share/doc/|lib/libfenwa-|.*/fenwaTargets-).*");
        if (!entry.is_directory() && other.match(name).empty())
            found.push_back(name);
    }
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (std::vector<std::string>{"bin/fenwa",
                                               "bin/fenwa-abi-check",
                                               "bin/fenwa-camera",
                                               "lib/cmake/fenwa/FenwaPlugin.cmake",
                                               "lib/cmake/fenwa/exports.map",
                                               "lib/cmake/fenwa/fenwaConfig.cmake",
                                               "lib/cmake/fenwa/fenwaConfigVersion.cmake",
                                               "lib/cmake/fenwa/fenwaTargets.cmake",
                                               "lib/fenwa/plugins/libfenwa-temperature.so",
                                               "lib/fenwa/plugins/libfenwa-temperature.toml",
                                               "lib/pkgconfig/fenwa.pc",
                                               "lib/systemd/system/fenwa@.service",
                                               "lib/sysusers.d/fenwa.conf",
                                               "share/bash-completion/completions/fenwa",
                                               "share/bash-completion/completions/fenwa-camera",
                                               "share/dbus-1/system.d/com.tarlo.Fenwa.conf",
                                               "share/man/man1/fenwa-abi-check.1.gz",
                                               "share/man/man1/fenwa-camera.1.gz",
                                               "share/man/man1/fenwa.1.gz",
                                               "share/man/man5/fenwa-graph.5.gz"}));
}

TEST_F(Install, PagesNameThePathsThatTheyAreInstalledTo) {
    const Ended page = run_program({"zcat", (prefix() / "share/man/man1/fenwa.1.gz").string()});
    EXPECT_THAT(page.out,
                testing::HasSubstr(".It Pa " + prefix().string() + "/lib/fenwa/plugins\n"));
    EXPECT_THAT(page.out, testing::Not(testing::HasSubstr("@CMAKE")));
}

TEST_F(Install, LibraryPathsHaveNoEntryThatIsEmptyOrRelative) {
    std::size_t looked_at = 0;
    EXPECT_EQ(loose_library_paths(prefix(), looked_at), "");
    EXPECT_EQ(looked_at, 6U);
}

TEST_F(Install, BringsHeadersThatABlockIsWrittenAgainst) {
    const TemporaryFolder folder;
    const std::string source = folder.write("block.cpp", R"(#include <fenwa/fenwa.hpp>
struct Plain : Fenwa::Block {
    using Fenwa::Block::Block;
    Fenwa::InPort<int>* in = Fenwa::add_inport<int>(*this, "in");
    Fenwa::Slot slot;
};
int lib_register_cpp(Fenwa::IRegistry* registry) {
    registry->register_block<Plain>("Plain");
    return 0;
})");
    const Ended built =
        run_program({"g++", "-std=c++20", "-fPIC", "-shared", "-I", (prefix() / "include").string(),
                     "-o", (folder.path() / "libplain.so").string(), source});
    ASSERT_EQ(built.code, 0) << built.err;
    const std::string graph =
        folder.write("graph.toml", "plugins = [\"libplain.so\"]\n[blocks.p]\ntype = \"Plain\"\n");
    const Ended ended = run_program({(prefix() / "bin/fenwa").string(), "check", "--plugin-dir",
                                     folder.path().string(), graph});
    EXPECT_EQ(ended.code, 0) << ended.err;
}

TEST_F(Install, WorksWhereverItIsPut) {
    const TemporaryFolder elsewhere;
    fs::rename(prefix() / "bin", elsewhere.path() / "bin");
    fs::rename(prefix() / "lib", elsewhere.path() / "lib");
    const std::string graph =
        elsewhere.write("graph.toml",
                        "plugins = [\"libfenwa-temperature.so\"]\n[blocks.v]\ntype = "
                        "\"VideoReady\"\nchannel = 0\n");
    const Ended ended = run_program({(elsewhere.path() / "bin/fenwa").string(), "check", graph});
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "fenwa: " + graph + ": no mistakes (1 block, 0 connections)\n");
    const Ended camera =
        run_program({(elsewhere.path() / "bin/fenwa-camera").string(), "--version"});
    EXPECT_EQ(camera.code, 0) << camera.err;
}

}  // namespace
}  // namespace test
