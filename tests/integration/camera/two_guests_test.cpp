// Several programs beside the camera.
#include <gmock/gmock.h>

#include <csignal>

#include "tests/integration/camera/scenario_scene.hpp"

namespace test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

class CameraGuests : public ScenarioScene {
  protected:
    /// What stands behind the first `--` for two programs.
    static std::vector<std::string> both(std::vector<std::string> first,
                                         const std::vector<std::string>& second) {
        first.emplace_back("--");
        first.insert(first.end(), second.begin(), second.end());
        return first;
    }

    /// A program that says `name`, and when it is asked to end, says that and ends with `code`.
    static std::vector<std::string> patient(const std::string& name, int code) {
        return {"sh", "-c",
                "trap 'echo " + name + " asked; exit " + std::to_string(code) + "' TERM; echo " +
                    name + " up; while :; do sleep 0.02; done"};
    }
    /// A program that waits, on the camera's bus, until the sensor `lens` shows 1.
    static std::vector<std::string> wait_and(const std::string& then) {
        return script("until camera show | grep -q 'temperature.lens *1.0'; do sleep 0.02; done\n" +
                      then);
    }
};

TEST_F(CameraGuests, AllFindTheBusAndTheCameraEndsWhenAllHaveEnded) {
    const Ended ended = play("", both(wait_and("camera set temperature.main 2"),
                                      script("camera set temperature.lens 1")));
    EXPECT_EQ(ended.code, 0);
    EXPECT_EQ(ended.err, "");
    EXPECT_LT(ended.out.find("\"temperature.lens\",\"value\":1.0"),
              ended.out.find("\"temperature.main\",\"value\":2.0"));
}

TEST_F(CameraGuests, TheFirstThatFailsEndsTheOthers) {
    // The last one fails once the first has told that it can be asked to end.
    const Ended ended =
        play("", both(script("trap 'echo one asked; exit 5' TERM\ncamera set temperature.lens 1\n"
                             "while :; do sleep 0.02; done"),
                      wait_and("exit 7")));
    EXPECT_EQ(ended.code, 7) << "the first one's code counts";
    EXPECT_EQ(ended.err, "fenwa-camera: 'sh' ended with exit code 7\n");
    EXPECT_THAT(ended.out, HasSubstr("one asked\n"));
}

TEST_F(CameraGuests, AreAllAskedToEndOnSigterm) {
    const auto camera = start(command("", both(patient("one", 0), patient("two", 6)), "text"));
    ASSERT_TRUE(camera->wait_for_text("ready"));
    std::size_t up = 0;
    while (up < 2 && camera->wait_for_line([](const std::string& line) {
        return line == "one up" || line == "two up";
    }))
        ++up;
    ASSERT_EQ(up, 2U) << camera->out();
    const Ended ended = camera->terminate();
    EXPECT_EQ(ended.code, 6);
    EXPECT_EQ(ended.err, "fenwa-camera: 'sh' ended with exit code 6\n");
    EXPECT_THAT(ended.out, HasSubstr("one asked\n"));
    EXPECT_THAT(ended.out, HasSubstr("two asked\n"));
    EXPECT_THAT(left_behind(), IsEmpty());
}

TEST_F(CameraGuests, OneThatCannotBeStartedEndsTheOthersInPeace) {
    const Ended ended = play("", both({"sleep", "60"}, {"/nonexistent/program"}));
    EXPECT_EQ(ended.code, 66);
    EXPECT_EQ(ended.err,
              "fenwa-camera: cannot start '/nonexistent/program': No such file or directory\n");
    EXPECT_EQ(lines(ended.out), whole({}, 66));
}

TEST_F(CameraGuests, BeforeAScenarioIsOverOneMayEndButNotAll) {
    const Ended one_left =
        play(R"([[steps]]
expect = {state = "temperature.lens", is = 1, within = 20}
)",
             both({"true"}, script("camera set temperature.lens 1; exec sleep 60")));
    EXPECT_EQ(one_left.code, 0);
    EXPECT_EQ(one_left.err, "");
    const Ended none_left = play("[[steps]]\nat = 60\n", both({"true"}, {"true"}));
    EXPECT_EQ(none_left.code, 1);
    EXPECT_EQ(none_left.err,
              "fenwa-camera: 'true' ended with exit code 0, before the scenario did\n");
}

TEST_F(CameraGuests, AnEmptyProgramIsAMistake) {
    for (const std::vector<std::string>& guests : std::vector<std::vector<std::string>>{
             {"true", "--"}, {"--", "true"}, {"true", "--", "--", "true"}}) {
        const Ended ended = run(command("", guests));
        EXPECT_EQ(ended.code, 2);
        EXPECT_EQ(ended.out, "");
        EXPECT_EQ(ended.err, "fenwa-camera: there is no program behind one of the '--'\n");
    }
}

}  // namespace
}  // namespace test
