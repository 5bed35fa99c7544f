// `show` refuses the answer of a program that is not our camera.
#include <nlohmann/json.hpp>

#include "common/bus/callback.hpp"
#include "tests/integration/camera/camera_scene.hpp"

namespace test {
namespace {

/// Owns the name of a camera on a bus of its own, and answers each call with the same text.
class OddCamera {
  public:
    OddCamera() : connection_(bus_.address()) {
        common::check(sd_bus_add_filter(connection_.bus(), filter_.out(),
                                        common::callback<&OddCamera::on_message>, this),
                      "sd_bus_add_filter");
        common::own_name(*connection_.bus(), camera::camera_control.name);
    }

    [[nodiscard]] const std::string& address() const { return bus_.address(); }

    /// Answers the next call, for which it waits 20 s at most. Null: without an argument.
    void answer_with(const char* text) {
        text_ = text;
        answered_ = false;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!answered_ && std::chrono::steady_clock::now() < deadline) {
            if (common::check(sd_bus_process(connection_.bus(), nullptr), "sd_bus_process") == 0)
                sd_bus_wait(connection_.bus(), 100'000);
        }
        sd_bus_flush(connection_.bus());
    }

  private:
    int on_message(sd_bus_message& message) {
        if (sd_bus_message_is_method_call(&message, camera::camera_control.interface, "Show") <= 0)
            return 0;
        answered_ = true;
        return sd_bus_reply_method_return(&message, text_ == nullptr ? "" : "s", text_);
    }

    common::PrivateBus bus_;
    BusClient connection_;
    common::SlotPtr filter_;
    const char* text_ = nullptr;
    bool answered_ = false;
};

class CameraShow : public CameraScene {
  protected:
    /// The sentence with which a command refuses the answer.
    std::string refusal_to(const char* answer, const Lines& words = {"show"}) {
        const auto program = start(words + Lines{"--bus", odd_.address()});
        odd_.answer_with(answer);
        const Ended ended = program->wait();
        EXPECT_EQ(ended.signal, 0) << answer;
        EXPECT_EQ(ended.code, 69) << answer;
        EXPECT_EQ(ended.out, "");
        const std::string begin = "fenwa-camera: the camera's answer makes no sense: ";
        EXPECT_THAT(ended.err, StartsWith(begin));
        return ended.err.substr(std::min(begin.size(), ended.err.size()));
    }

    OddCamera odd_;
};

TEST_F(CameraShow, RefusesAnAnswerThatIsNoJson) {
    EXPECT_THAT(refusal_to("cheese"), HasSubstr("the answer is not JSON, see byte 1: "));
    EXPECT_EQ(refusal_to(nullptr), "it is not a string\n");
}

TEST_F(CameraShow, RefusesAnAnswerThatIsNestedTooDeeply) {
    const std::string deep =
        R"({"values":{"a":)" + std::string(200'000, '[') + std::string(200'000, ']') + "}}";
    const std::string sentence = "the answer is nested deeper than 64 arrays and objects\n";
    EXPECT_EQ(refusal_to(deep.c_str()), sentence);
    EXPECT_EQ(refusal_to(deep.c_str(), {"show", "--format", "json"}), sentence);
}

TEST_F(CameraShow, RefusesAnAnswerThatLacksAMemberOrHasItOfAnotherKind) {
    EXPECT_EQ(refusal_to("5"), "the answer must be an object, not a number\n");
    EXPECT_EQ(refusal_to("{}"), "the answer has no 'bus'\n");
    const common::Json whole =
        common::parse_json(R"({"bus":"","services":[{"name":"","state":"down",
        "unique_name":"","bus_names":[""],"activatable":true,
        "registrations":[{"id":1,"client":"","what":""}]}],
        "values":{},"faults":[{"member":"","what":""}]})",
                           "the text");
    const auto spoiled = [&](const std::string& pointer, bool remove) {
        common::Json state = whole;
        const common::Json::json_pointer place(pointer);
        if (remove)
            state[place.parent_pointer()].erase(place.back());
        else
            state[place] = nullptr;
        return state.dump();
    };
    const auto place_of = [](const std::string& pointer) {
        return pointer.find('/', 1) == std::string::npos
                   ? std::string("the answer")
                   : "'" + pointer.substr(0, pointer.rfind('/')) + "'";
    };
    for (const std::string pointer :
         {"/bus", "/services", "/values", "/faults", "/services/0/name", "/services/0/state",
          "/services/0/unique_name", "/services/0/bus_names", "/services/0/activatable",
          "/services/0/registrations", "/services/0/registrations/0/client",
          "/services/0/registrations/0/what", "/faults/0/member", "/faults/0/what"}) {
        EXPECT_EQ(refusal_to(spoiled(pointer, true).c_str()),
                  place_of(pointer) + " has no '" + pointer.substr(pointer.rfind('/') + 1) + "'\n");
        EXPECT_THAT(refusal_to(spoiled(pointer, false).c_str()),
                    HasSubstr("'" + pointer + "' must be a"));
    }
    EXPECT_EQ(refusal_to(spoiled("/services/0/registrations/0/id", true).c_str()),
              "'/services/0/registrations/0' has no 'id'\n");
    EXPECT_EQ(refusal_to(spoiled("/services/0/bus_names/0", false).c_str()),
              "'/services/0/bus_names/0' must be a string, not null\n");
}

TEST_F(CameraShow, SaysThatItCannotBeWrittenUnlessNobodyReadsIt) {
    open();
    for (const std::string words : {"show", "show --format json"}) {
        const std::string line = "\"$0\" " + words + " --bus='" + address() + "'";
        const Ended full = run_script(line + " > /dev/full");
        EXPECT_EQ(full.code, 69) << words;
        EXPECT_EQ(full.err, "fenwa-camera: cannot write to stdout: No space left on device\n");
        EXPECT_EQ(run_script("{ sleep 0.2; " + line + "; echo $? >&2; } | true").err, "0\n")
            << words;
    }
}

}  // namespace
}  // namespace test
