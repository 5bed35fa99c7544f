// Consumers that do not take their share, and controllers that do not tell it.
#include "tests/integration/camera/power_scene.hpp"
#include "tests/support/bus_daemon.hpp"

namespace test {
namespace {

using PowerShareFaults = PowerScene;

TEST_F(PowerShareFaults, AConsumerWhoseNameNobodyOwnsHarmsNothing) {
    open();
    BusClient client(address(), camera::power_consumers);
    EXPECT_EQ(
        client.call("Register", "sbsss", "vipd0", 0, "com.tarlo.Vipd.ch0", "/", "com.example.A"),
        "()");
    EXPECT_EQ(client.call("RequestPower", "ssd", "vipd0", "control", 4.0), "()");
    EXPECT_EQ(failure(), "com.tarlo.Vipd.ch0 org.freedesktop.DBus.Error.NameHasNoOwner: " +
                             unowned_receiver_text("com.tarlo.Vipd.ch0"));
    EXPECT_EQ(value("power.share.vipd0"), 4.0);
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
    EXPECT_THAT(told("answer"), IsEmpty());
}

TEST_F(PowerShareFaults, AConsumerThatDoesNotAnswerIsTold) {
    open({.own_bus = true, .variables = {{"SYSTEMD_BUS_TIMEOUT", "2s"}}});
    ConsumerClient a(address(), 0);
    a.keep_silent();
    EXPECT_EQ(a.register_consumer(), "()");
    EXPECT_EQ(a.request(4.0), "()");
    a.wait_for(1);
    EXPECT_TRUE(camera().wait_for_text("\"event\":\"answer\""));
    close();
    EXPECT_EQ(ended().code, 0) << ended().err;
    EXPECT_THAT(told("answer"),
                ElementsAre(R"({"event":"answer","service":"power-consumer","member":"SetPower",)"
                            R"("receiver":"com.tarlo.Vipd.ch0","error":)"
                            R"("org.freedesktop.DBus.Error.NoReply","message":)"
                            R"("Method call timed out"})"));
}

TEST_F(PowerShareFaults, TheTellingMayGoWrong) {
    open();
    const auto a = consumer();
    fail({"SetPower", "--silent", "--times", "1"});
    EXPECT_EQ(a->request(1.0), "()");
    fail({"SetPower", "--delay", "2000", "--times", "1"});
    EXPECT_EQ(a->request(2.0), "()");
    EXPECT_EQ(a->request(3.0), "()");
    EXPECT_THAT(a->wait_for(2), ElementsAre("SetPower(3.0)", "SetPower(2.0)"));
    fail({"power-consumer.SetPower", "--malformed", "--times", "1"});
    EXPECT_EQ(a->request(4.0), "()");
    EXPECT_EQ(a->request(5.0), "()");
    EXPECT_THAT(a->wait_for(3).back(), "SetPower(5.0)") << "the malformed one did not arrive";
    EXPECT_THAT(failure(), HasSubstr("org.freedesktop.DBus.Error.InvalidArgs: "));
}

TEST_F(PowerShareFaults, ALateShareOfAConsumerThatHasGoneIsNotSent) {
    open();
    const auto a = consumer();
    fail({"SetPower", "--delay", "1000", "--times", "1"});
    EXPECT_EQ(a->request(1.0), "()");
    EXPECT_EQ(a->unregister(), "()");
    fail({"SetPower", "--delay", "1500", "--times", "1"});
    EXPECT_EQ(a->register_consumer(), "()");
    EXPECT_EQ(a->request(2.0), "()");
    EXPECT_THAT(a->wait_for(1), ElementsAre("SetPower(2.0)"));
}

TEST_F(PowerShareFaults, TheControllerMayVanishInPlaceOfTelling) {
    open({.activation = true});
    const auto a = consumer();
    a->listen();
    const std::string owner = service("power-consumer")["unique_name"];
    fail({"SetPower", "--drop", "--times", "1"});
    EXPECT_EQ(a->request(1.0), "()");
    EXPECT_THAT(a->wait_for(1), ElementsAre("owner " + owner + " -> none"));
    EXPECT_EQ(a->register_consumer(), "()");
    EXPECT_EQ(a->request(2.0), "()");
    EXPECT_EQ(a->wait_for(3).back(), "SetPower(2.0)");
}

}  // namespace
}  // namespace test
