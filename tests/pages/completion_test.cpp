// Completion offers exactly the commands, options and fixed values that --help names.
#include <gtest/gtest.h>

#include <algorithm>

#include "tests/pages/help.hpp"
#include "tests/pages/shell.hpp"

namespace test {
namespace {

Words sorted(Words words) {
    std::sort(words.begin(), words.end());
    return words;
}

/// "-h, --help" gives two, "--format text|json" one.
Words option_names(const std::vector<Entry>& options) {
    Words names;
    for (const Entry& option : options) {
        for (const std::string& name : split(option.name, ", "))
            names.push_back(name.substr(0, name.find_first_of(" [")));
    }
    return names;
}

class Completion : public testing::TestWithParam<std::string> {
  protected:
    static std::string name() { return GetParam(); }
    static std::string program() { return path_of(GetParam()); }

    /// What a shell offers behind these words, which begin behind the program.
    [[nodiscard]] static Words offers(Words words) {
        words.insert(words.begin(), program());
        return sorted(Shell().offers(words));
    }
};

TEST_P(Completion, OffersTheCommandsOfTheHelp) {
    const Help help = help_of(name());
    Words wanted = option_names(help.options);
    EXPECT_EQ(offers({"-"}), sorted(wanted));
    for (const Entry& command : help.commands)
        wanted.push_back(command.name);
    EXPECT_GE(wanted.size(), 8U);
    EXPECT_EQ(offers({""}), sorted(wanted));
}

TEST_P(Completion, OffersTheOptionsOfEachCommand) {
    for (const Entry& command : help_of(name()).commands) {
        const Words wanted = sorted(option_names(help_of(name(), {command.name}).options));
        EXPECT_GE(wanted.size(), 3U);
        EXPECT_EQ(offers({command.name, "-"}), wanted) << command.name;
    }
}

TEST_P(Completion, OffersTheValuesOfOptionsThatHaveAFewOnly) {
    int found = 0;
    for (const Entry& command : help_of(name()).commands) {
        for (const Entry& option : help_of(name(), {command.name}).options) {
            if (option.name.find('|') == std::string::npos)
                continue;
            ++found;
            const Words parts = split(option.name, " ");
            const Words values = sorted(split(parts.at(1), "|"));
            EXPECT_EQ(offers({command.name, parts.at(0), ""}), values) << command.name;
            // Readline takes words apart at "=".
            EXPECT_EQ(offers({command.name, parts.at(0), "=", ""}), values) << command.name;
            EXPECT_EQ(offers({command.name, parts.at(0), "="}), values) << command.name;
            EXPECT_EQ(offers({command.name, parts.at(0), "=", values.at(0).substr(0, 2)}),
                      Words{values.at(0)})
                << command.name;
        }
    }
    EXPECT_GE(found, 3);
}

TEST_P(Completion, OffersNothingWhereNothingIsKnown) {
    EXPECT_EQ(offers({"no-such-command", ""}), Words{});
    EXPECT_EQ(offers({"no-such-command", "-"}), Words{});
    EXPECT_EQ(offers({"--version", ""}), Words{});
    EXPECT_EQ(offers({"xyz"}), Words{});
}

INSTANTIATE_TEST_SUITE_P(Of, Completion, testing::Values("fenwa", "fenwa-camera"),
                         [](const auto& program) {
                             return program.param == "fenwa" ? "Fenwa" : "Camera";
                         });

TEST(CameraCompletion, OffersTheServicesOfTheHelp) {
    const std::string text = help_of("fenwa-camera", {"run"}).paragraph("Services");
    const Words services = sorted(split(text.substr(0, text.find('.')), ", "));
    const std::string camera = path_of("fenwa-camera");
    for (const Words& words :
         {Words{"start", ""}, Words{"stop", ""}, Words{"restart", ""},
          Words{"run", "--without", ""}, Words{"run", "--without", "video", ""}}) {
        Words all = words;
        all.insert(all.begin(), camera);
        EXPECT_EQ(sorted(Shell().offers(all)), services) << words.front();
    }
    EXPECT_EQ(Shell().offers({camera, "start", "video", ""}), Words{});
    EXPECT_EQ(Shell().offers({camera, "run", "--without", "video", "--no-a"}),
              Words{"--no-activation"});
}

TEST(CameraCompletion, OffersWhatCanFail) {
    const std::string camera = path_of("fenwa-camera");
    EXPECT_EQ(Shell().offers({camera, "fail", "GetT"}),
              (Words{"GetTemperature", "GetTemperatureIdFromName"}));
    EXPECT_EQ(Shell().offers({camera, "fail", "--times", "3", "video."}),
              Words{"video.SignalVideoReady"});
}

}  // namespace
}  // namespace test
