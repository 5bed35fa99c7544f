// The power budget, divided among consumers on connections of their own.
#include <gmock/gmock.h>

#include "tests/integration/camera/power_scene.hpp"

namespace test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const std::string error = "com.tarlo.PowerControl.Consumer.Error.";

using PowerBudget = PowerScene;

TEST_F(PowerBudget, IsDividedInTheOrderOfTheRequests) {
    open();
    const auto a = consumer(0);
    const auto b = consumer(1);
    const auto c = consumer(2);
    EXPECT_EQ(b->request(12.0), "()");
    EXPECT_THAT(b->wait_for(1), ElementsAre("SetPower(12.0)"));
    EXPECT_EQ(a->request(12.0), "()");
    EXPECT_THAT(a->wait_for(1), ElementsAre("SetPower(8.0)"));
    EXPECT_EQ(c->request(1.0), "()");
    EXPECT_THAT(c->wait_for(1), ElementsAre("SetPower(0.0)"));
    EXPECT_THAT(shares(), ElementsAre("vipd1 12.0", "vipd0 8.0", "vipd2 0.0"));

    EXPECT_EQ(b->request(11.5), "()");
    EXPECT_THAT(b->wait_for(2), ElementsAre("SetPower(12.0)", "SetPower(11.5)"));
    EXPECT_THAT(a->wait_for(2), ElementsAre("SetPower(8.0)", "SetPower(8.5)"));
    handle({"set", "power.budget", "30"});
    EXPECT_THAT(a->wait_for(3).back(), "SetPower(12.0)");
    EXPECT_THAT(c->wait_for(2).back(), "SetPower(1.0)");
    EXPECT_EQ(a->unregister(), "()");
    close();
    EXPECT_EQ(ended().code, 0) << ended().err;
    Lines calls;
    for (const std::string& line : with("\"outgoing_call\"", told())) {
        const common::Json event = common::Json::parse(line);
        calls.push_back(event["receiver"].get<std::string>() + ' ' + event["arguments"].dump());
    }
    EXPECT_THAT(calls, ElementsAre("com.tarlo.Vipd.ch1 [12.0]", "com.tarlo.Vipd.ch0 [8.0]",
                                   "com.tarlo.Vipd.ch2 [0.0]", "com.tarlo.Vipd.ch1 [11.5]",
                                   "com.tarlo.Vipd.ch0 [8.5]", "com.tarlo.Vipd.ch0 [12.0]",
                                   "com.tarlo.Vipd.ch2 [1.0]"))
        << "nobody else is told";
}

TEST_F(PowerBudget, ARequestIsAnsweredBeforeTheShareIsTold) {
    open();
    const auto a = consumer(0);
    a->send("RequestPower", "ssd", "vipd0", "control", 4.5);
    EXPECT_THAT(a->wait_for(2), ElementsAre("RequestPower answers ()", "SetPower(4.5)"));
    a->send("RequestPower", "ssd", "vipd0", "control", 4.5);
    EXPECT_THAT(a->wait_for(4), ElementsAre("RequestPower answers ()", "SetPower(4.5)",
                                            "RequestPower answers ()", "SetPower(4.5)"))
        << "the same share is told again";
    ASSERT_TRUE(camera().wait_for_text("\"answer\""));
    ASSERT_TRUE(camera().wait_for_text("\"answer\""));
    close();
    const std::string client = a->unique_name();
    const std::string about = R"(,"service":"power-consumer","member":")";
    const Lines request = {R"({"event":"call")" + about +
                               R"(RequestPower","arguments":["vipd0","control",4.5],)" +
                               R"("sender":")" + client + R"("})",
                           R"({"event":"reply")" + about + R"(RequestPower","receiver":")" +
                               client + R"(","values":[]})",
                           R"({"event":"outgoing_call")" + about +
                               R"(SetPower","receiver":"com.tarlo.Vipd.ch0","arguments":[4.5]})",
                           R"({"event":"answer")" + about +
                               R"(SetPower","receiver":"com.tarlo.Vipd.ch0","values":[]})"};
    Lines middle = {
        R"({"event":"call")" + about +
            R"(Register","arguments":["vipd0",false,"com.tarlo.Vipd.ch0",)" +
            R"("/com/tarlo/Vipd/PowerConsumer","com.tarlo.Vipd.PowerConsumer"],"sender":")" +
            client + R"("})",
        R"({"event":"reply")" + about + R"(Register","receiver":")" + client + R"(","values":[]})"};
    middle.insert(middle.end(), request.begin(), request.end());
    middle.insert(middle.end(), request.begin(), request.end());
    EXPECT_EQ(told(), whole(middle));
}

TEST_F(PowerBudget, TheShareOfAClientThatLeavesIsFree) {
    open();
    auto a = consumer(0);
    const auto b = consumer(1);
    EXPECT_EQ(a->request(15.0), "()");
    EXPECT_EQ(b->request(15.0), "()");
    EXPECT_THAT(b->wait_for(1), ElementsAre("SetPower(5.0)"));
    const std::string leaver = a->unique_name();
    a.reset();
    EXPECT_THAT(b->wait_for(2), ElementsAre("SetPower(5.0)", "SetPower(15.0)"));
    EXPECT_THAT(shares(), ElementsAre("vipd1 15.0"));
    close();
    EXPECT_THAT(with("\"dropped\"", told()),
                ElementsAre(R"({"event":"dropped","service":"power-consumer","client":")" + leaver +
                            R"(","registrations":1})"));
}

TEST_F(PowerBudget, TheShareOfOneThatUnregistersIsFree) {
    open();
    const auto a = consumer(0);
    const auto b = consumer(1);
    EXPECT_EQ(a->request(15.0), "()");
    EXPECT_EQ(b->request(15.0), "()");
    // As a block does it: nobody waits for an answer.
    const common::MessagePtr unregister = a->new_call("Unregister", "s", "vipd0");
    common::check(sd_bus_message_set_expect_reply(unregister.get(), 0), "expect no reply");
    common::check(sd_bus_send(a->bus(), unregister.get(), nullptr), "send");
    EXPECT_THAT(b->wait_for(2), ElementsAre("SetPower(5.0)", "SetPower(15.0)"));
    close();
    EXPECT_THAT(with(R"("event":"reply","service":"power-consumer","member":"Unregister")", told()),
                IsEmpty());
}

TEST_F(PowerBudget, RegisteringAgainMovesTheAddress) {
    open();
    const auto a = consumer(0);
    EXPECT_EQ(a->request(4.0), "()");
    a->wait_for(1);
    common::own_name(*a->bus(), "com.example.Moved");
    EXPECT_EQ(a->call("Register", "sbsss", "vipd0", 1, "com.example.Moved",
                      "/com/tarlo/Vipd/PowerConsumer", "com.tarlo.Vipd.PowerConsumer"),
              "()");
    handle({"set", "power.budget", "3"});
    EXPECT_THAT(a->wait_for(2), ElementsAre("SetPower(4.0)", "SetPower(3.0)"));
    EXPECT_EQ(common::json_line(state()["services"][1]["registrations"]),
              R"([{"id":"vipd0","client":")" + a->unique_name() +
                  R"(","what":"gets 3.0 of 4.0 (control), at com.example.Moved )"
                  R"(/com/tarlo/Vipd/PowerConsumer com.tarlo.Vipd.PowerConsumer",)"
                  R"("request":{"kind":"control","power":4.0},"share":3.0,"address":)"
                  R"({"service":"com.example.Moved","path":"/com/tarlo/Vipd/PowerConsumer",)"
                  R"("interface":"com.tarlo.Vipd.PowerConsumer"}}])");
}

TEST_F(PowerBudget, ARestartForgetsConsumersAndKeepsTheBudget) {
    open();
    const auto a = consumer(0);
    EXPECT_EQ(a->request(4.0), "()");
    handle({"set", "power.budget", "2"});
    EXPECT_EQ(a->wait_for(2).back(), "SetPower(2.0)");
    handle({"restart", "power-consumer"});
    EXPECT_THAT(shares(), IsEmpty());
    EXPECT_EQ(a->request(4.0), error + "NotRegistered: No consumer is registered as 'vipd0'.");
    EXPECT_EQ(a->register_consumer(), "()");
    EXPECT_EQ(a->request(4.0), "()");
    EXPECT_THAT(a->wait_for(3).back(), "SetPower(2.0)") << "it is told, whatever it believes";
}

TEST_F(PowerBudget, ACallBringsAStoppedControllerBack) {
    open({.activation = true});
    const auto a = consumer(0);
    EXPECT_EQ(a->request(4.0), "()");
    handle({"stop", "power-consumer"});
    EXPECT_EQ(a->register_consumer(), "()");
    EXPECT_EQ(a->request(5.0), "()");
    EXPECT_THAT(a->wait_for(2), ElementsAre("SetPower(4.0)", "SetPower(5.0)"));
}

TEST_F(PowerBudget, WithoutItsControllerCallsAreRefused) {
    open({.run = {"--without", "power-consumer"}});
    ConsumerClient a(address(), 0);
    EXPECT_THAT(a.register_consumer(), StartsWith("org.freedesktop.DBus.Error.ServiceUnknown: "));
    EXPECT_EQ(state()["services"][1]["state"], "down");
    EXPECT_EQ(state()["services"][2]["state"], "up");
}

TEST_F(PowerBudget, ShowsConsumersSharesAndWhatIsLeft) {
    const std::string file = folder().write("c.toml", "[power]\nbudget = 10.5\nreceived = inf\n");
    open({.run = {"--config", file}});
    const auto a = consumer(0);
    const auto b = consumer(1);
    EXPECT_EQ(b->request(4.0), "()");
    const std::string shown = plain(order({"show"}).out);
    EXPECT_EQ(shown.substr(shown.find("service power-consumer")),
              "service power-consumer: up as :1.2\n"
              "  name com.tarlo.PowerControl.Consumer\n"
              "  registration vipd0 of " +
                  a->unique_name() +
                  ": has not asked for power, at com.tarlo.Vipd.ch0 /com/tarlo/Vipd/PowerConsumer "
                  "com.tarlo.Vipd.PowerConsumer\n"
                  "  registration vipd1 of " +
                  b->unique_name() +
                  ": gets 4.0 of 4.0 (control), at com.tarlo.Vipd.ch1 "
                  "/com/tarlo/Vipd/PowerConsumer com.tarlo.Vipd.PowerConsumer\n"
                  "service power-status: up as :1.3\n"
                  "  name com.tarlo.PowerControl.Status\n"
                  "service controls: up as :1.4\n"
                  "  name com.tarlo.Onscreencontrols1\n"
                  "service overlay: up as :1.5\n"
                  "  name com.tarlo.PrioritizedTextOverlay\n"
                  "service video: up as :1.6\n"
                  "  name com.tarlo.VideoReady1\n"
                  "service init: up as :1.7\n"
                  "  name org.freedesktop.systemd1\n"
                  "temperature.main     36.5\n"
                  "temperature.lens     28.0\n"
                  "temperature.housing  21.5\n"
                  "power.budget         10.5\n"
                  "power.left           6.5\n"
                  "power.share.vipd0    0.0\n"
                  "power.share.vipd1    4.0\n"
                  "power.received       inf\n"
                  "wdr.0                off\n"
                  "wdr.1                off\n"
                  "overlay.text         \"\"\n"
                  "video.0              0\n"
                  "video.1              0\n"
                  "unit                 enabled\n");
    const Ended refused = order({"set", "power.share.vipd1", "1"});
    EXPECT_EQ(refused.code, 2);
    EXPECT_EQ(refused.err,
              "fenwa-camera: 'power.share.vipd1' cannot be set: it follows from the budget and the "
              "requests\n");
}

}  // namespace
}  // namespace test
