// Consumers that do not take their share, and controllers that do not tell it.
#include <gmock/gmock.h>

#include "tests/integration/camera/camera_scene.hpp"
#include "tests/integration/camera/consumer_client.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class PowerShareFaults : public CameraScene {
  protected:
    /// The next call to a consumer that has failed, as "NAME: MESSAGE".
    std::string failure() {
        const auto line = camera().wait_for_line([](const std::string& text) {
            return text.find("\"answer\"") != std::string::npos &&
                   text.find("\"error\"") != std::string::npos;
        });
        if (!line)
            return "none";
        const common::Json event = common::Json::parse(*line);
        return event["receiver"].get<std::string>() + ' ' + event["error"].get<std::string>() +
               ": " + event["message"].get<std::string>();
    }

    /// A client that has registered channel 0, and waits for nothing.
    std::unique_ptr<ConsumerClient> consumer() {
        auto client = std::make_unique<ConsumerClient>(address(), 0);
        EXPECT_EQ(client->register_consumer(), "()");
        return client;
    }
};

TEST_F(PowerShareFaults, AConsumerWhoseNameNobodyOwnsHarmsNothing) {
    open();
    BusClient client(address(), camera::power_consumers);
    EXPECT_EQ(
        client.call("Register", "sbsss", "vipd0", 0, "com.tarlo.Vipd.ch0", "/", "com.example.A"),
        "()");
    EXPECT_EQ(client.call("RequestPower", "ssd", "vipd0", "control", 4.0), "()");
    EXPECT_EQ(failure(),
              "com.tarlo.Vipd.ch0 org.freedesktop.DBus.Error.NameHasNoOwner: Name "
              "\"com.tarlo.Vipd.ch0\" does not exist");
    EXPECT_EQ(state()["values"]["power.share.vipd0"], 4.0);
}

TEST_F(PowerShareFaults, AConsumerThatRefusesHarmsNothing) {
    open();
    const auto a = consumer();
    a->refuse("com.example.Error.No");
    EXPECT_EQ(a->request(4.0), "()");
    a->wait_for(1);
    EXPECT_EQ(failure(), "com.tarlo.Vipd.ch0 com.example.Error.No: No.");
    EXPECT_EQ(a->request(5.0), "()");
    EXPECT_THAT(a->wait_for(2), ElementsAre("SetPower(4.0)", "SetPower(5.0)"));
}

TEST_F(PowerShareFaults, AConsumerWithoutTheMethodHarmsNothing) {
    open();
    const auto a = consumer();
    EXPECT_EQ(a->call("Register", "sbsss", "vipd0", 0, "com.tarlo.Vipd.ch0", "/elsewhere",
                      "com.example.A"),
              "()");
    EXPECT_EQ(a->request(4.0), "()");
    // Its connection answers when it is served.
    a->send("Unregister", "s", "nobody");
    a->wait_for(1);
    EXPECT_THAT(failure(), HasSubstr("com.tarlo.Vipd.ch0 org.freedesktop.DBus.Error.Unknown"));
}

TEST_F(PowerShareFaults, TheAnswerOfAConsumerThatHasGoneIsIgnored) {
    open();
    auto a = consumer();
    a->keep_silent();
    EXPECT_EQ(a->request(4.0), "()");
    a->wait_for(1);
    EXPECT_EQ(a->unregister(), "()");
    a.reset();  // the daemon answers for it
    BusClient other(address(), camera::power_consumers);
    EXPECT_THAT(other.call("Unregister", "s", "vipd0"), HasSubstr("NotRegistered"));
    close();
    EXPECT_EQ(ended().code, 0) << ended().err;
    EXPECT_THAT(with("\"answer\"", told()), IsEmpty());
}

TEST_F(PowerShareFaults, AConsumerThatDoesNotAnswerIsToldInTheStory) {
    const auto camera =
        start({"run", "--private-bus", "--format", "json"}, {{"SYSTEMD_BUS_TIMEOUT", "2s"}});
    const auto line = camera->wait_for_text("\"ready\"");
    ASSERT_TRUE(line) << camera->err();
    ConsumerClient a(address_in(*line), 0);
    a.keep_silent();
    EXPECT_EQ(a.register_consumer(), "()");
    EXPECT_EQ(a.request(4.0), "()");
    a.wait_for(1);
    EXPECT_TRUE(camera->wait_for_text("\"event\":\"answer\""));
    const Ended ended = camera->terminate();
    EXPECT_EQ(ended.code, 0) << ended.err;
    EXPECT_THAT(with("\"answer\"", lines(ended.out)),
                ElementsAre(R"({"event":"answer","service":"power-consumer","member":"SetPower",)"
                            R"("receiver":"com.tarlo.Vipd.ch0","error":)"
                            R"("org.freedesktop.DBus.Error.NoReply","message":)"
                            R"("Method call timed out"})"));
}

TEST_F(PowerShareFaults, TheTellingMayGoWrong) {
    open();
    const auto a = consumer();
    handle({"fail", "SetPower", "--silent", "--times", "1"});
    EXPECT_EQ(a->request(1.0), "()");
    handle({"fail", "SetPower", "--delay", "2000", "--times", "1"});
    EXPECT_EQ(a->request(2.0), "()");
    EXPECT_EQ(a->request(3.0), "()");
    EXPECT_THAT(a->wait_for(2), ElementsAre("SetPower(3.0)", "SetPower(2.0)"));
    handle({"fail", "power-consumer.SetPower", "--malformed", "--times", "1"});
    EXPECT_EQ(a->request(4.0), "()");
    EXPECT_EQ(a->request(5.0), "()");
    EXPECT_THAT(a->wait_for(3).back(), "SetPower(5.0)") << "the malformed one did not arrive";
    EXPECT_THAT(failure(), HasSubstr("org.freedesktop.DBus.Error.InvalidArgs: "));
}

TEST_F(PowerShareFaults, ALateShareOfAConsumerThatHasGoneIsNotSent) {
    open();
    const auto a = consumer();
    handle({"fail", "SetPower", "--delay", "1000", "--times", "1"});
    EXPECT_EQ(a->request(1.0), "()");
    EXPECT_EQ(a->unregister(), "()");
    handle({"fail", "SetPower", "--delay", "1500", "--times", "1"});
    EXPECT_EQ(a->register_consumer(), "()");
    EXPECT_EQ(a->request(2.0), "()");
    EXPECT_THAT(a->wait_for(1), ElementsAre("SetPower(2.0)"));
}

TEST_F(PowerShareFaults, TheControllerMayVanishInPlaceOfTelling) {
    open({.activation = true});
    const auto a = consumer();
    a->listen();
    const std::string owner = state()["services"][1]["unique_name"];
    handle({"fail", "SetPower", "--drop", "--times", "1"});
    EXPECT_EQ(a->request(1.0), "()");
    EXPECT_THAT(a->wait_for(1), ElementsAre("owner " + owner + " -> none"));
    EXPECT_EQ(a->register_consumer(), "()");
    EXPECT_EQ(a->request(2.0), "()");
    EXPECT_EQ(a->wait_for(3).back(), "SetPower(2.0)");
}

TEST_F(PowerShareFaults, AMethodOfTheControllerMayGoWrong) {
    open();
    const auto a = consumer();
    handle({"fail", "RequestPower", "--error", "com.example.Error.Busy", "--times", "1"});
    EXPECT_EQ(a->request(1.0), "com.example.Error.Busy: A fault rule answers this call.");
    EXPECT_EQ(a->request(2.0), "()");
    EXPECT_THAT(a->wait_for(1), ElementsAre("SetPower(2.0)"));
    handle({"fail", "Unregister", "--malformed", "--times", "1"});
    EXPECT_EQ(a->unregister(), "(\"malformed\")");
    EXPECT_THAT(state()["services"][1]["registrations"], IsEmpty());
}

}  // namespace
}  // namespace test
