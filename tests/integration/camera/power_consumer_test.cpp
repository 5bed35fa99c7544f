// The power budget, divided among consumers on connections of their own.
#include <chrono>
#include <csignal>
#include <limits>
#include <nlohmann/json.hpp>
#include <thread>

#include "camera/models/power.hpp"
#include "tests/integration/camera/power_scene.hpp"

namespace test {
namespace {

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
    for (const std::string& line : told("outgoing_call")) {
        const common::Json event = common::parse_json(line, "the text");
        calls.push_back(event["receiver"].get<std::string>() + ' ' + event["arguments"].dump());
    }
    EXPECT_THAT(calls, ElementsAre("com.tarlo.Vipd.ch1 [12.0]", "com.tarlo.Vipd.ch0 [8.0]",
                                   "com.tarlo.Vipd.ch2 [0.0]", "com.tarlo.Vipd.ch1 [11.5]",
                                   "com.tarlo.Vipd.ch0 [8.5]", "com.tarlo.Vipd.ch0 [12.0]",
                                   "com.tarlo.Vipd.ch2 [1.0]"))
        << "nobody else is told";
}

TEST_F(PowerBudget, ARequestIsAnsweredBeforeTheShareIsTold) {
    open({.format = "text"});
    const auto a = consumer();
    a->send("RequestPower", "ssd", "vipd0", "control", 4.5);
    EXPECT_THAT(a->wait_for(2), ElementsAre("RequestPower answers ()", "SetPower(4.5)"));
    a->send("RequestPower", "ssd", "vipd0", "control", 4.5);
    EXPECT_THAT(a->wait_for(4), ElementsAre("RequestPower answers ()", "SetPower(4.5)",
                                            "RequestPower answers ()", "SetPower(4.5)"))
        << "the same share is told again";
    ASSERT_TRUE(camera().wait_for_text("ch0 answers SetPower"));
    ASSERT_TRUE(camera().wait_for_text("ch0 answers SetPower"));
    close();
    const std::string name = "power-consumer: ";
    const std::string client = a->unique_name();
    const Lines request = {name + client + " calls RequestPower(\"vipd0\", \"control\", 4.5)",
                           name + "answers " + client + ", RequestPower: ()",
                           name + "calls com.tarlo.Vipd.ch0, SetPower(4.5)",
                           name + "com.tarlo.Vipd.ch0 answers SetPower: ()"};
    EXPECT_EQ(told(),
              whole_text(Lines{name + client +
                                   " calls Register(\"vipd0\", false, \"com.tarlo.Vipd.ch0\", "
                                   "\"/com/tarlo/Vipd/PowerConsumer\", "
                                   "\"com.tarlo.Vipd.PowerConsumer\")",
                               name + "answers " + client + ", Register: ()"} +
                         request + request));
}

TEST_F(PowerBudget, TheShareOfOneThatUnregistersOrLeavesIsFree) {
    open();
    const auto a = consumer(0);
    auto b = consumer(1);
    const auto c = consumer(2);
    for (const auto& each : {a.get(), b.get(), c.get()})
        EXPECT_EQ(each->request(15.0), "()");
    EXPECT_THAT(c->wait_for(1), ElementsAre("SetPower(0.0)"));
    // As a block does it: nobody waits for an answer.
    const common::MessagePtr unregister = a->new_call("Unregister", "s", "vipd0");
    common::check(sd_bus_message_set_expect_reply(unregister.get(), 0), "expect no reply");
    common::check(sd_bus_send(a->bus(), unregister.get(), nullptr), "send");
    EXPECT_THAT(c->wait_for(2), ElementsAre("SetPower(0.0)", "SetPower(5.0)"));
    const std::string leaver = b->unique_name();
    b.reset();
    EXPECT_EQ(c->wait_for(3).back(), "SetPower(15.0)");
    EXPECT_THAT(shares(), ElementsAre("vipd2 15.0"));
    close();
    EXPECT_THAT(with("\"Unregister\"", told("reply")), IsEmpty());
    EXPECT_THAT(told("dropped"),
                ElementsAre(R"({"event":"dropped","service":"power-consumer","client":")" + leaver +
                            R"(","registrations":1})"));
}

TEST_F(PowerBudget, AClientThatLeavesBeforeItsCallIsServedKeepsNoConsumer) {
    open();
    const pid_t playing = player(camera());
    kill(playing, SIGSTOP);
    const BusClient witness(address());
    auto hasty = std::make_unique<BusClient>(address(), camera::power_consumers);
    const std::string name = hasty->unique_name();
    hasty->send("Register", "sbsss", "vipd0", 0, "com.example.A", "/", "com.example.A");
    hasty.reset();
    for (int i = 0; i < 2000 && sd_bus_get_name_creds(witness.bus(), name.c_str(), 0, nullptr) >= 0;
         ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    kill(playing, SIGCONT);
    EXPECT_TRUE(camera().wait_for_text("\"dropped\"")) << "it left as " << name;
    EXPECT_THAT(shares(), IsEmpty());
}

TEST_F(PowerBudget, RegisteringAgainMovesTheAddress) {
    open();
    const auto a = consumer();
    EXPECT_EQ(a->request(4.0), "()");
    a->wait_for(1);
    common::own_name(*a->bus(), "com.example.Moved");
    EXPECT_EQ(a->call("Register", "sbsss", "vipd0", 1, "com.example.Moved",
                      "/com/tarlo/Vipd/PowerConsumer", "com.tarlo.Vipd.PowerConsumer"),
              "()");
    handle({"set", "power.budget", "3"});
    EXPECT_THAT(a->wait_for(2), ElementsAre("SetPower(4.0)", "SetPower(3.0)"));
    EXPECT_EQ(common::json_line(service("power-consumer")["registrations"]),
              R"([{"id":"vipd0","client":")" + a->unique_name() +
                  R"(","what":"gets 3.0 of 4.0 (control), at com.example.Moved )"
                  R"(/com/tarlo/Vipd/PowerConsumer com.tarlo.Vipd.PowerConsumer",)"
                  R"("request":{"kind":"control","power":4.0},"share":3.0,"address":)"
                  R"({"service":"com.example.Moved","path":"/com/tarlo/Vipd/PowerConsumer",)"
                  R"("interface":"com.tarlo.Vipd.PowerConsumer"}}])");
}

TEST_F(PowerBudget, ARestartForgetsConsumersAndKeepsTheBudget) {
    open({.activation = true});
    const auto a = consumer();
    EXPECT_EQ(a->request(4.0), "()");
    handle({"set", "power.budget", "2"});
    EXPECT_EQ(a->wait_for(2).back(), "SetPower(2.0)");
    handle({"restart", "power-consumer"});
    EXPECT_THAT(shares(), IsEmpty());
    EXPECT_EQ(value("power.left"), 2.0);
    EXPECT_EQ(a->request(4.0), error + "NotRegistered: No consumer is registered as 'vipd0'.");
    EXPECT_EQ(a->register_consumer(), "()");
    EXPECT_EQ(a->request(4.0), "()");
    EXPECT_THAT(a->wait_for(3).back(), "SetPower(2.0)") << "it is told, whatever it believes";
    handle({"stop", "power-consumer"});
    EXPECT_EQ(a->register_consumer(), "()") << "a call brings it up";
}

TEST_F(PowerBudget, IsShownWithConsumersSharesAndWhatIsLeft) {
    open({.run = {"--config", folder().write("c.toml", "[power]\nbudget = 10.5\nreceived = inf\n"),
                  "--without", "power-status"}});
    const auto a = consumer(0);
    const auto b = consumer(1);
    EXPECT_EQ(b->request(4.0), "()");
    const std::string shown = command({"show"}).out;
    const std::string at = " /com/tarlo/Vipd/PowerConsumer com.tarlo.Vipd.PowerConsumer\n";
    EXPECT_THAT(shown, HasSubstr("  registration vipd0 of " + a->unique_name() +
                                 ": has not asked for power, at com.tarlo.Vipd.ch0" + at +
                                 "  registration vipd1 of " + b->unique_name() +
                                 ": gets 4.0 of 4.0 (control), at com.tarlo.Vipd.ch1" + at +
                                 "service power-status: down\n"));
    EXPECT_THAT(shown, HasSubstr("\npower.budget         10.5\n"
                                 "power.left           6.5\n"
                                 "power.share.vipd0    0.0\n"
                                 "power.share.vipd1    4.0\n"
                                 "power.received       inf\n"));
    EXPECT_EQ(refusal_of({"set", "power.share.vipd1", "1"}),
              "fenwa-camera: 'power.share.vipd1' cannot be set: it follows from the budget and the "
              "requests\n");
}

TEST_F(PowerBudget, ANameBelongsToTheClientThatRegisteredIt) {
    open();
    const auto a = consumer();
    EXPECT_EQ(a->request(4.0), "()");
    EXPECT_EQ(a->register_consumer(), "()") << "the same again";
    BusClient other(address(), camera::power_consumers);
    const std::string owned =
        error + "OwnedByAnother: Another client has registered the consumer 'vipd0'.";
    EXPECT_EQ(other.call("Register", "sbsss", "vipd0", 0, "com.example.A", "/", "com.example.A"),
              owned);
    EXPECT_EQ(other.call("RequestPower", "ssd", "vipd0", "control", 1.0), owned);
    EXPECT_EQ(other.call("Unregister", "s", "vipd0"), owned);
    const std::string nobody = error + "NotRegistered: No consumer is registered as 'vipd1'.";
    EXPECT_EQ(other.call("RequestPower", "ssd", "vipd1", "control", 1.0), nobody);
    EXPECT_EQ(other.call("Unregister", "s", "vipd1"), nobody);
    EXPECT_THAT(shares(), ElementsAre("vipd0 4.0"));
}

TEST_F(PowerBudget, ARequestThatMakesNoSenseIsRefused) {
    open();
    const auto a = consumer();
    const auto reg = [&](const std::string& name, const char* service, const char* path,
                         const char* interface) {
        return a->call("Register", "sbsss", name.c_str(), 0, service, path, interface);
    };
    const std::string address_error = error + "InvalidAddress: ";
    EXPECT_EQ(reg("x", "nonsense", "/", "com.example.A"),
              address_error + "'nonsense' is not a valid bus name.");
    EXPECT_EQ(reg("x", "com.example.A", "x/", "com.example.A"),
              address_error + "'x/' is not a valid object path.");
    EXPECT_EQ(reg("x", "com.example.A", "/", "A"),
              address_error + "'A' is not a valid interface name.");
    for (const std::string& name : {std::string(), std::string(256, 'x')})
        EXPECT_EQ(reg(name, "com.example.A", "/", "com.example.A"),
                  error + "InvalidName: A consumer's name must have 1 to 255 bytes, not " +
                      std::to_string(name.size()) + ".");
    const std::string request_error =
        error + "InvalidRequest: The power must be a finite number of at least 0, not ";
    EXPECT_EQ(a->request(-0.5), request_error + "-0.5.");
    EXPECT_EQ(a->request(std::numeric_limits<double>::quiet_NaN()), request_error + "nan.");
    EXPECT_EQ(a->request(std::numeric_limits<double>::infinity()), request_error + "inf.");
    EXPECT_THAT(shares(), ElementsAre("vipd0 0.0"));
    EXPECT_THAT(a->heard(), IsEmpty());
}

TEST_F(PowerBudget, TakesSoManyConsumersAndNoMore) {
    open();
    BusClient client(address(), camera::power_consumers);
    const auto add = [&](std::size_t number) {
        return client.call("Register", "sbsss", std::to_string(number).c_str(), 0, "com.example.A",
                           "/", "com.example.A");
    };
    for (std::size_t i = 0; i < camera::PowerModel::max_consumers; ++i) {
        ASSERT_EQ(add(i), "()");
        ASSERT_TRUE(camera().wait_for_text("\"reply\"")) << "its lines are to be read";
    }
    EXPECT_EQ(add(camera::PowerModel::max_consumers),
              error + "TooManyConsumers: At most 1024 consumers are accepted.");
    EXPECT_EQ(add(0), "()");
}

}  // namespace
}  // namespace test
